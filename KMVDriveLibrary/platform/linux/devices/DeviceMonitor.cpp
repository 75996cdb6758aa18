// SPDX-License-Identifier: MIT
#include "platform/linux/devices/DeviceMonitor.h"

#include <linux/filter.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string_view>
#include <vector>

#include "platform/posix/FileDescriptor.h"
#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr std::uint32_t kKernelGroup = 1;
constexpr std::size_t kLongestMessage = 16384;  // the kernel's own limit is 2 KiB of properties

sock_filter statement(int code, std::uint32_t value) {
  return BPF_STMT(static_cast<std::uint16_t>(code), value);
}

/// Goes on when the loaded value is `value`, else behind the next `skipped` instructions.
sock_filter expect(std::uint32_t value, std::size_t skipped) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, static_cast<std::uint8_t>(skipped));
}

/// The kernel announces a "bdi" device with every mount and unmount of FUSE, NFS and btrfs: without this filter
/// each of them would wake the event thread twice. Its path follows "add@", "remove@" or "change@".
void ignoreBackingDevices(int socket) {
  constexpr std::string_view kPath = "/devices/virtual/bdi";
  constexpr std::size_t kWord = 4, kComparison = 2;  // bytes; instructions for each word
  constexpr std::size_t kComparisons = kPath.size() / kWord * kComparison;
  std::vector<sock_filter> program{statement(BPF_LD | BPF_B | BPF_ABS, 3), expect('@', 2),
                                   statement(BPF_LDX | BPF_IMM, 4),        statement(BPF_JMP | BPF_JA, 3),
                                   statement(BPF_LD | BPF_B | BPF_ABS, 6), expect('@', 1 + kComparisons + 1),
                                   statement(BPF_LDX | BPF_IMM, 7)};
  for (std::size_t i = 0; i < kPath.size(); i += kWord) {
    std::uint32_t word = 0;
    for (const char byte : kPath.substr(i, kWord)) word = word << 8 | static_cast<unsigned char>(byte);
    program.push_back(statement(BPF_LD | BPF_W | BPF_IND, static_cast<std::uint32_t>(i)));
    program.push_back(expect(word, kComparisons - i / kWord * kComparison - 1));
  }
  program.push_back(statement(BPF_RET | BPF_K, 0));
  program.push_back(statement(BPF_RET | BPF_K, ~0U));
  const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  // Without it there are only more wakes.
  (void)!::setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

class KernelMonitor final : public DeviceMonitor {
 public:
  explicit KernelMonitor(const LinuxOptions& options)
      : socket_(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT)) {
    if (!socket_) return;
    setReceiveBuffer(socket_.get(), options.netlinkBufferBytes);
    ignoreBackingDevices(socket_.get());
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = kKernelGroup;
    if (::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
      socket_.reset();
  }

  bool followsRecords() const override { return false; }
  int descriptor() const override { return socket_.get(); }

  News drain() override {
    News news;
    std::array<char, kLongestMessage> buffer;
    while (socket_) {
      sockaddr_nl sender{};
      const ssize_t size = receive(buffer, sender);
      if (size < 0 && errno != ENOBUFS) break;
      if (size < 0) news.lost = true;
      // A privileged process may send to the multicast group too; only the kernel's messages have port id 0.
      if (size < 0 || sender.nl_pid != 0) continue;
      if (auto event = parseDeviceMessage({buffer.data(), static_cast<std::size_t>(size)}))
        news.events.push_back(std::move(*event));
    }
    return news;
  }

 private:
  ssize_t receive(std::array<char, kLongestMessage>& buffer, sockaddr_nl& sender) const {
    return retryOnEINTR([&] {
      socklen_t senderSize = sizeof sender;
      return ::recvfrom(socket_.get(), buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&sender),
                        &senderSize);
    });
  }

  FileDescriptor socket_;
};

}  // namespace

void setReceiveBuffer(int socket, int bytes) {
  if (::setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0) return;
  ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

std::unique_ptr<DeviceMonitor> makeDeviceMonitor(const LinuxOptions& options) {
#ifdef KMV_WITH_UDEV
  // Without udevd its group stays silent, with no sign of it.
  if (::access((options.udevDataRoot + "/control").c_str(), F_OK) == 0) {
    if (auto monitor = makeUdevMonitor(options)) return monitor;
  }
#endif
  return std::make_unique<KernelMonitor>(options);
}

}  // namespace kmv
