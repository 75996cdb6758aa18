// SPDX-License-Identifier: MIT
#include "platform/linux/session/UDisks.h"

#ifdef KMV_WITH_SDBUS
#  include <systemd/sd-bus.h>

#  include <cerrno>
#  include <cstdint>
#  include <cstdlib>
#  include <memory>
#  include <string_view>
#  include <vector>
#endif

namespace kmv {

#ifdef KMV_WITH_SDBUS
namespace {

constexpr char kService[] = "org.freedesktop.UDisks2";
constexpr char kFileSystem[] = "org.freedesktop.UDisks2.Filesystem";
constexpr char kBlock[] = "org.freedesktop.UDisks2.Block";
// A slow stick with much to write, or a user who looks for a password.
constexpr std::uint64_t kPatienceMicroseconds = 600'000'000;

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
struct ReleaseMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;
using Message = std::unique_ptr<sd_bus_message, ReleaseMessage>;

class BusError {
 public:
  BusError() = default;
  ~BusError() { sd_bus_error_free(&error_); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  sd_bus_error* get() { return &error_; }
  std::string name() const { return error_.name == nullptr ? "" : error_.name; }

 private:
  sd_bus_error error_{};
};

/// One connection, for one command.
class UDisks {
 public:
  UDisks() {
    sd_bus* bus = nullptr;
    if (sd_bus_open_system(&bus) < 0) return;
    bus_.reset(bus);
    sd_bus_set_method_call_timeout(bus, kPatienceMicroseconds);
  }

  /// The object of a device; empty when there is none or nobody to ask.
  std::string resolve(const std::string& deviceNode) {
    if (!bus_) return {};
    BusError error;
    sd_bus_message* answer = nullptr;
    const int result = sd_bus_call_method(bus_.get(), kService, "/org/freedesktop/UDisks2/Manager",
                                          "org.freedesktop.UDisks2.Manager", "ResolveDevice", error.get(),
                                          &answer, "a{sv}a{sv}", 1, "path", "s", deviceNode.c_str(), 0);
    const Message owner(answer);
    const char* object = nullptr;
    if (result < 0 || sd_bus_message_enter_container(answer, 'a', "o") < 0) return {};
    return sd_bus_message_read(answer, "o", &object) > 0 ? object : std::string();
  }

  UDisksReply unmount(const std::string& object) {
    BusError error;
    // The service's option "force" would only hide a busy volume.
    const int result = sd_bus_call_method(bus_.get(), kService, object.c_str(), kFileSystem, "Unmount",
                                          error.get(), nullptr, "a{sv}", 0);
    return replyOf(result, error);
  }

  UDisksReply setLabel(const std::string& object, const std::string& label) {
    BusError error;
    const int result = sd_bus_call_method(bus_.get(), kService, object.c_str(), kFileSystem, "SetLabel",
                                          error.get(), nullptr, "sa{sv}", label.c_str(), 0);
    // A text that is no UTF-8 never leaves this process.
    if (result == -EINVAL) return {UDisksReply::Kind::badName, {}};
    return replyOf(result, error);
  }

  std::string label(const std::string& object) {
    char* text = nullptr;
    BusError error;
    sd_bus_get_property_string(bus_.get(), kService, object.c_str(), kBlock, "IdLabel", error.get(), &text);
    const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
    return text == nullptr ? std::string() : text;
  }

  /// Where the service sees the device mounted, in its order. Paths are sent as bytes, with a NUL.
  std::vector<std::string> mountPoints(const std::string& object) {
    std::vector<std::string> points;
    BusError error;
    sd_bus_message* answer = nullptr;
    const int result = sd_bus_get_property(bus_.get(), kService, object.c_str(), kFileSystem, "MountPoints",
                                           error.get(), &answer, "aay");
    const Message owner(answer);
    if (result < 0 || sd_bus_message_enter_container(answer, 'a', "ay") < 0) return points;
    const void* bytes = nullptr;
    std::size_t size = 0;
    while (sd_bus_message_read_array(answer, 'y', &bytes, &size) > 0) {
      const std::string_view text(static_cast<const char*>(bytes), size);
      points.emplace_back(text.substr(0, text.find('\0')));
    }
    return points;
  }

 private:
  /// By the error's name: every error number of the service's is the same.
  static UDisksReply replyOf(int result, const BusError& error) {
    if (result >= 0) return {UDisksReply::Kind::done, {}};
    return {UDisksReply::Kind::refused, error.name()};
  }

  Bus bus_;
};

}  // namespace

UDisksReply unmountWithUDisks(const std::string& deviceNode, const std::string& mountPoint) {
  UDisks service;
  const std::string object = service.resolve(deviceNode);
  if (object.empty()) return {};
  // It takes no mount point and unmounts the first that it lists.
  const std::vector<std::string> points = service.mountPoints(object);
  if (points.empty() || points.front() != mountPoint) return {};
  return service.unmount(object);
}

UDisksReply setLabelWithUDisks(const std::string& deviceNode, const std::string& label) {
  UDisks service;
  const std::string object = service.resolve(deviceNode);
  if (object.empty()) return {};
  const std::string before = service.label(object);
  UDisksReply reply = service.setLabel(object, label);
  if (reply.kind != UDisksReply::Kind::done) return reply;
  // Some file systems' tools truncate a name and report success. A label as before is one not read anew yet.
  const std::string after = service.label(object);
  const bool cut = after.size() < label.size() && after != before && label.starts_with(after);
  if (!cut) return reply;
  service.setLabel(object, before);  // whole or not at all
  reply.kind = UDisksReply::Kind::badName;
  return reply;
}

#else

UDisksReply unmountWithUDisks(const std::string&, const std::string&) {
  return {};
}

UDisksReply setLabelWithUDisks(const std::string&, const std::string&) {
  return {};
}

#endif

}  // namespace kmv
