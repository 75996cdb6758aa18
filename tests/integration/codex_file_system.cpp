// SPDX-License-Identifier: MIT
// A Codex volume for tests: a read-only FUSE file system whose files are empty and carry their size in an
// attribute, with a state document at its top.
//   kmv_codex_file_system POINT [--folders=N] [--files=N] [--keeps=SECONDS] [--delay=MICROSECONDS]
//                         [--no-clips] [--no-types] [--kind=NAME]
// Folders "d00000" with files "f00000" each, besides the odd files of "clips". What the kernel may keep, it
// keeps for `keeps` seconds, none at all by default. Each attribute takes `delay`. It is mounted as "fuse.NAME",
// by default as a Codex volume. Attributes of the top tell and change it: "user.requests" counts,
// "user.document" is the state document. Ends with its parent.
#define FUSE_USE_VERSION 31
#include <fuse.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Attributes = std::map<std::string, std::string>;

struct Node {
  mode_t mode = S_IFREG | 0644;
  std::uint64_t size = 0;
  std::string content = {};  // of a link its target
  Attributes attributes = {};
  ino_t number = 0;
  std::vector<std::string> children = {};  // names
};

constexpr char kEstimate[] = "user.codex.estimatedHDESize";
constexpr std::string_view kPlainOnly = "/clips/A004.ari";  // has no attributes in name spaces at all

std::shared_mutex mutex;            // of the tree
std::map<std::string, Node> nodes;  // by path
std::atomic<std::uint64_t> requests{0};
double keeps = 0;
unsigned delay = 0;
bool tellsTypes = true;

void add(const std::string& path, Node node) {
  node.number = nodes.size() + 1;
  const std::size_t slash = path.rfind('/');
  if (path != "/")
    nodes.at(slash == 0 ? "/" : path.substr(0, slash)).children.push_back(path.substr(slash + 1));
  nodes.emplace(path, std::move(node));
}

void addFolder(const std::string& path) {
  add(path, {.mode = S_IFDIR | 0755});
}
void addEmpty(const std::string& path, Attributes attributes) {
  add(path, {.attributes = std::move(attributes)});
}
void addFile(const std::string& path, const std::string& content, mode_t mode = S_IFREG | 0644) {
  add(path, {.mode = mode, .size = content.size(), .content = content});
}

void buildClips() {
  addFolder("/clips");
  addEmpty("/clips/A001.ari", {{kEstimate, "1000"}, {"user.codex.decodedSize", "2000"}});
  addEmpty("/clips/A002.ari", {});
  addEmpty("/clips/A003.ari", {{"codex.estimatedHDESize", "3000"}});
  addEmpty(std::string(kPlainOnly), {{"codex.estimatedHDESize", "1"}});
  addEmpty("/clips/odd \xff\n name", {{kEstimate, "  42 "}});
  addEmpty("/clips/no number", {{kEstimate, "12 GB"}});
  addEmpty("/clips/long", {{kEstimate, std::string(300, ' ') + "8"}});
  addFile("/clips/.hidden", "seven b");
  addFile("/clips/._A001.ari", "not listed");
  addFile("/clips/loop", "..", S_IFLNK | 0777);
  addFile("/clips/nowhere", "missing", S_IFLNK | 0777);
  addFolder("/clips/reel");
  addFile("/clips/reel/real.bin", std::string(5000, 'x'));
}

void buildTree(unsigned long folders, unsigned long files, bool withClips) {
  addFolder("/");
  addFile("/.codexvfs",
          R"({"status":"initialising","sw_version":"1.2.3","vfs_type":"device","volume_label":"A001"})");
  if (withClips) buildClips();
  char name[32];
  for (unsigned long d = 0; d < folders; ++d) {
    std::snprintf(name, sizeof name, "/d%05lu", d);
    const std::string folder = name;
    addFolder(folder);
    for (unsigned long f = 0; f < files; ++f) {
      std::snprintf(name, sizeof name, "/f%05lu", f);
      addEmpty(folder + name, {{kEstimate, std::to_string(1000 + (d + f) % 1000)}});
    }
  }
}

/// What `use` makes of the node at `path`; an error number without it.
template <typename Use>
int with(const char* path, Use use) {
  ++requests;
  const std::shared_lock lock(mutex);
  const auto found = nodes.find(path);
  return found == nodes.end() ? -ENOENT : use(found->second);
}

struct stat statusOf(const Node& node) {
  struct stat status {};
  status.st_ino = node.number;
  status.st_mode = node.mode;
  status.st_nlink = S_ISDIR(node.mode) ? 2 : 1;
  status.st_size = static_cast<off_t>(node.size);
  status.st_mtime = 1'700'000'000;
  status.st_uid = getuid();
  status.st_gid = getgid();
  return status;
}

int getStatus(const char* path, struct stat* status, fuse_file_info*) {
  return with(path, [&](const Node& node) {
    *status = statusOf(node);
    return 0;
  });
}

int readFolder(const char* path, void* buffer, fuse_fill_dir_t fill, off_t from, fuse_file_info*,
               fuse_readdir_flags flags) {
  return with(path, [&](const Node& node) {
    const std::string folder = path == std::string_view("/") ? "/" : path + std::string("/");
    const bool isPlus = (flags & FUSE_READDIR_PLUS) != 0;
    for (auto at = static_cast<std::size_t>(from); at < node.children.size(); ++at) {
      const std::string& name = node.children[at];
      const struct stat status = statusOf(nodes.at(folder + name));
      if (fill(buffer, name.c_str(), tellsTypes ? &status : nullptr, static_cast<off_t>(at + 1),
               isPlus ? FUSE_FILL_DIR_PLUS : fuse_fill_dir_flags{}) != 0)
        break;
    }
    return 0;
  });
}

int readLink(const char* path, char* buffer, std::size_t size) {
  return with(path, [&](const Node& node) {
    std::snprintf(buffer, size, "%s", node.content.c_str());
    return 0;
  });
}

int openNode(const char* path, fuse_file_info* info) {
  info->direct_io = keeps == 0;
  info->keep_cache = keeps > 0;
  return with(path, [](const Node&) { return 0; });
}

int readNode(const char* path, char* buffer, std::size_t size, off_t from, fuse_file_info*) {
  return with(path, [&](const Node& node) {
    const auto at = std::min(static_cast<std::size_t>(from), node.content.size());
    return static_cast<int>(node.content.copy(buffer, size, at));
  });
}

int getAttribute(const char* path, const char* name, char* buffer, std::size_t size) {
  const bool isCount = path == std::string_view("/") && name == std::string_view("user.requests");
  if (!isCount && delay > 0) usleep(delay);
  return with(path, [&](const Node& node) {
    if (path == kPlainOnly && std::string_view(name).starts_with("user.")) return -EOPNOTSUPP;
    const auto found = node.attributes.find(name);
    if (!isCount && found == node.attributes.end()) return -ENODATA;
    const std::string value = isCount ? std::to_string(requests) : found->second;
    if (size != 0 && size < value.size()) return -ERANGE;
    value.copy(buffer, size);
    return static_cast<int>(value.size());
  });
}

int setAttribute(const char* path, const char* name, const char* bytes, std::size_t size, int) {
  ++requests;
  if (path != std::string_view("/") || name != std::string_view("user.document")) return -EROFS;
  const std::unique_lock lock(mutex);
  Node& document = nodes.at("/.codexvfs");
  document.content.assign(bytes, size);
  document.size = size;
  return 0;
}

void* start(fuse_conn_info* connection, fuse_config* config) {
  config->use_ino = 1;
  config->entry_timeout = config->attr_timeout = keeps;
  if (!tellsTypes) connection->want &= ~static_cast<unsigned>(FUSE_CAP_READDIRPLUS);
  return nullptr;
}

/// What stands behind `option` where an argument begins with it.
std::optional<std::string> textAfter(const char* option, const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (argument.starts_with(option)) return argument.substr(std::strlen(option));
  }
  return std::nullopt;
}

double numberAfter(const char* option, const std::vector<std::string>& arguments) {
  return std::atof(textAfter(option, arguments).value_or("0").c_str());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const std::vector<std::string> arguments(argv + 2, argv + argc);
  keeps = numberAfter("--keeps=", arguments);
  delay = static_cast<unsigned>(numberAfter("--delay=", arguments));
  tellsTypes = !textAfter("--no-types", arguments);
  buildTree(static_cast<unsigned long>(numberAfter("--folders=", arguments)),
            static_cast<unsigned long>(numberAfter("--files=", arguments)),
            !textAfter("--no-clips", arguments));

  fuse_operations operations{};
  operations.init = start;
  operations.getattr = getStatus;
  operations.readlink = readLink;
  operations.open = openNode;
  operations.read = readNode;
  operations.readdir = readFolder;
  operations.getxattr = getAttribute;
  operations.setxattr = setAttribute;
  std::string options = "-ofsname=codex0,subtype=" + textAfter("--kind=", arguments).value_or("codexvfs");
  char foreground[] = "-f";
  char* own[] = {argv[0], foreground, options.data(), argv[1], nullptr};
  return fuse_main(4, own, &operations, nullptr);
}
