// SPDX-License-Identifier: MIT
// How long does it take to add up the sizes of a volume's files? On a FUSE volume whose files are empty and
// carry their size in an attribute, with a kernel that keeps what it was told, with one that keeps nothing,
// and with a server that takes 200 us for each attribute; and on ext4. Beside the library: the bare walk of
// one thread by descriptor, nftw, std::filesystem, du, and three questions by path for each file, as it is
// first written. All in one run, in turn, round by round; requests to the server are counted. Needs root: it
// works in a mount namespace of its own, which ends with it. --full: 20,000 and 200,000 files instead of a
// tenth.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <dirent.h>
#include <fcntl.h>
#include <ftw.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr char kAttribute[] = "user.codex.estimatedHDESize";

/// A folder that every machine has and that does not hide the server's program.
std::string scratchFolder() {
  const std::string program = KMV_CODEX_FILE_SYSTEM;
  for (const std::string folder : {"/srv", "/media", "/mnt"}) {
    if (std::filesystem::is_directory(folder) && !program.starts_with(folder + "/")) return folder;
  }
  return {};
}
const std::string kScratch = scratchFolder();

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

std::int64_t numberOf(const char* text, ssize_t size) {
  std::int64_t number = 0;
  for (ssize_t i = 0; i < size && text[i] >= '0' && text[i] <= '9'; ++i)
    number = number * 10 + (text[i] - '0');
  return number;
}

std::int64_t attributeOf(const char* path) {
  std::array<char, 64> value;
  return numberOf(value.data(), ::lgetxattr(path, kAttribute, value.data(), value.size()));
}

std::int64_t attributeAt(int folder, const char* name) {
  struct {
    alignas(8) std::uint64_t value;
    std::uint32_t size, flags;
  } arguments{};
  std::array<char, 64> value;
  arguments.value = reinterpret_cast<std::uintptr_t>(value.data());
  arguments.size = value.size();
  constexpr long kGetxattrat = 464;
  long got =
      ::syscall(kGetxattrat, folder, name, AT_SYMLINK_NOFOLLOW, kAttribute, &arguments, sizeof arguments);
  if (got < 0 && errno == ENOSYS) {
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + name;
    got = ::lgetxattr(path.c_str(), kAttribute, value.data(), value.size());
  }
  return numberOf(value.data(), got);
}

/// The least that it takes in one thread: a look by descriptor at each file, and one more where it is empty.
std::int64_t bareWalk(int folder) {
  std::int64_t sum = 0;
  std::vector<std::string> folders;
  alignas(dirent64) std::array<char, 32768> buffer;
  for (long got = 0; (got = ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size())) > 0;) {
    for (long at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
      at += entry->d_reclen;
      const std::string_view name(entry->d_name);
      if (name == "." || name == "..") continue;
      if (entry->d_type == DT_DIR) {
        folders.emplace_back(name);
        continue;
      }
      struct statx status {};
      if (::statx(folder, entry->d_name, AT_SYMLINK_NOFOLLOW | AT_STATX_DONT_SYNC, STATX_SIZE, &status) != 0)
        continue;
      sum += status.stx_size != 0 ? static_cast<std::int64_t>(status.stx_size)
                                  : attributeAt(folder, entry->d_name);
    }
  }
  for (const std::string& name : folders) {
    const int sub = ::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (sub < 0) continue;
    sum += bareWalk(sub);
    ::close(sub);
  }
  return sum;
}

std::int64_t byDescriptor(const std::string& root) {
  const int folder = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const std::int64_t sum = bareWalk(folder);
  ::close(folder);
  return sum;
}

std::int64_t sumOfNftw = 0;
std::int64_t byNftw(const std::string& root) {
  sumOfNftw = 0;
  const auto each = [](const char* path, const struct stat* status, int type, FTW*) {
    if (type == FTW_F) sumOfNftw += status->st_size != 0 ? status->st_size : attributeOf(path);
    return 0;
  };
  ::nftw(root.c_str(), each, 32, FTW_PHYS);
  return sumOfNftw;
}

std::int64_t byFilesystem(const std::string& root) {
  std::int64_t sum = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    const auto size = static_cast<std::int64_t>(entry.file_size());
    sum += size != 0 ? size : attributeOf(entry.path().c_str());
  }
  return sum;
}

std::int64_t byPaths(const std::string& folder, std::unordered_map<std::string, std::int64_t>& sizes) {
  std::int64_t sum = 0;
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    names.push_back(entry.path().filename());
  for (const std::string& name : names) {
    const std::string path = folder + "/" + name;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) continue;
    if (S_ISDIR(status.st_mode)) {
      sum += byPaths(path, sizes);
      continue;
    }
    ::stat(path.c_str(), &status);
    ::stat(path.c_str(), &status);
    std::int64_t size = status.st_size;
    if (size == 0 && ::lgetxattr(path.c_str(), kAttribute, nullptr, 0) >= 0) size = attributeOf(path.c_str());
    sizes[path] = size;
    sum += size;
  }
  return sum;
}

pid_t start(const std::vector<std::string>& words) {
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  pid_t process = -1;
  if (::posix_spawnp(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0)
    give_up(words[0].c_str());
  return process;
}

std::int64_t byDu(const std::string& root) {
  const std::string command = "du -sb " + root + " >/dev/null";
  return std::system(command.c_str()) == 0 ? -1 : 0;  // it counts folders too
}

std::int64_t byLibrary(const std::string& root) {
  // A new one each time, so that no size is known before; it has no document to read here.
  const auto wrapper =
      CodexVirtualFileSystemWrapper::initWithRoot(kmv::URL::fileURLWithPath("/nowhere", true));
  return wrapper->getFileSizeOfItem(kmv::URL::fileURLWithPath(root, true));
}

struct Way {
  const char* name;
  std::function<std::int64_t(const std::string&)> sum;
  std::vector<double> microseconds = {};  // a file, by round
  std::vector<double> ratios = {};        // to the first way of the same round
  double requests = 0;                    // a file
};

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

void compare(const std::string& title, const std::string& root, int files, int rounds, bool isServed,
             bool isSlow) {
  std::vector<Way> ways{{"bare walk, one thread", byDescriptor},
                        {"library", byLibrary},
                        {"nftw", byNftw},
                        {"std::filesystem", byFilesystem}};
  if (!isServed) ways.push_back({"du -sb (process)", byDu});
  if (!isSlow)
    ways.push_back({"three questions by path", [](const std::string& folder) {
                      std::unordered_map<std::string, std::int64_t> sizes;
                      return byPaths(folder, sizes);
                    }});
  const auto requests = [&] {
    std::array<char, 32> text{};
    ::getxattr(root.c_str(), "user.requests", text.data(), text.size() - 1);
    return std::atof(text.data());
  };
  const std::int64_t expected = byDescriptor(root);
  byLibrary(root);
  for (int round = 0; round < rounds; ++round) {
    std::vector<double> times(ways.size());
    for (std::size_t i = 0; i < ways.size(); ++i) {
      const std::size_t at = (i + static_cast<std::size_t>(round)) % ways.size();
      Way& way = ways[at];
      const double before = isServed ? requests() : 0;
      const auto begin = std::chrono::steady_clock::now();
      const std::int64_t sum = way.sum(root);
      times[at] =
          std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count() / files;
      if (sum >= 0 && sum != expected) {
        std::fprintf(stderr, "%s: %lld instead of %lld\n", way.name, static_cast<long long>(sum),
                     static_cast<long long>(expected));
        std::exit(1);
      }
      if (isServed) way.requests = (requests() - before - 1) / files;
    }
    for (std::size_t i = 0; i < ways.size(); ++i) {
      ways[i].microseconds.push_back(times[i]);
      ways[i].ratios.push_back(times[i] / times[0]);
    }
  }
  std::printf("%s, %d files, a file:\n", title.c_str(), files);
  for (const Way& way : ways) {
    std::printf("  %-26s %8.2f us %6.2fx", way.name, median(way.microseconds), median(way.ratios));
    if (isServed) std::printf(" %6.2f requests", way.requests);
    std::printf("\n");
  }
}

void onAServedVolume(const char* title, int folders, int files, const char* keeps, const char* delay,
                     int rounds) {
  const std::string point = kScratch + "/codex";
  ::mkdir(point.c_str(), 0755);
  const pid_t server = start({KMV_CODEX_FILE_SYSTEM, point, "--folders=" + std::to_string(folders),
                              "--files=" + std::to_string(files), keeps, delay, "--no-clips"});
  for (int tries = 0; ::getxattr(point.c_str(), "user.requests", nullptr, 0) < 0; ++tries) {
    if (tries == 10'000 || ::waitpid(server, nullptr, WNOHANG) != 0) give_up("the server");
    ::usleep(1000);
  }
  compare(title, point, folders * files, rounds, /*isServed=*/true,
          /*isSlow=*/std::string(delay) != "--delay=0");
  ::kill(server, SIGTERM);
  ::waitpid(server, nullptr, 0);
}

void onExt4(int folders, int rounds) {
  constexpr int kFiles = 100;
  const std::string image = kScratch + "/image", root = kScratch + "/ext4";
  const std::string make = "truncate -s 1G " + image + " && mkfs.ext4 -q -N 300000 " + image + " && mkdir " +
                           root + " && mount -o loop " + image + " " + root;
  if (std::system(make.c_str()) != 0) give_up("a volume");
  for (int d = 0; d < folders; ++d) {
    const std::string top = root + "/t" + std::to_string(d / 50), folder = top + "/d" + std::to_string(d);
    ::mkdir(top.c_str(), 0755);
    ::mkdir(folder.c_str(), 0755);
    for (int f = 0; f < kFiles; ++f) {
      const std::string path = folder + "/clip_" + std::to_string(f) + ".ari";
      const int file = ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
      if (file < 0 || ::ftruncate(file, 1 + (d * 37 + f * 11) % 5000) != 0) give_up("a file");
      ::close(file);
    }
  }
  compare("ext4, warm", root, folders * kFiles, rounds, /*isServed=*/false, /*isSlow=*/false);
  ::umount2(root.c_str(), MNT_DETACH);
}

}  // namespace

int main(int argc, char** argv) {
  const bool isFull = argc > 1 && std::string_view(argv[1]) == "--full";
  if (::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0 ||
      ::mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", kScratch.c_str(), "tmpfs", 0, "size=2G") != 0) {
    std::puts("needs root and a mount namespace of its own: not measured");
    return 0;
  }
  const int folders = isFull ? 200 : 20;
  const int rounds = isFull ? 7 : 3;
  onAServedVolume("FUSE, the kernel keeps what it is told", folders, 100, "--keeps=600", "--delay=0", rounds);
  onAServedVolume("FUSE, the kernel keeps nothing", folders, 100, "--keeps=0", "--delay=0", rounds);
  onAServedVolume("FUSE, 200 us an attribute", folders, 100, "--keeps=600", "--delay=200", isFull ? 3 : 1);
  onExt4(isFull ? 2000 : 200, rounds);
  return 0;
}
