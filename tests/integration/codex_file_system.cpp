// SPDX-License-Identifier: MIT
// A Codex volume for tests: a read-only FUSE file system whose files are empty and carry their size in an
// attribute, with a state document at its top.
//   kmv_codex_file_system POINT [--folders=N] [--files=N] [--keeps=SECONDS] [--delay=MICROSECONDS]
//                         [--no-clips] [--no-types] [--kind=NAME]
// Folders "d00000" with files "f00000" each, besides the odd files of "clips". What the kernel may keep, it
// keeps for `keeps` seconds, none at all by default. Each attribute takes `delay`. It is mounted as "fuse.NAME",
// by default as a Codex volume. Attributes of the top tell and change it: "user.requests" counts,
// "user.document" is the state document. Setting "user.size" of a file changes the size that it reports. Ends
// with its parent.
#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>
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
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct Node {
  mode_t mode = S_IFREG | 0644;
  std::uint64_t size = 0;
  std::string content = {};  // of a link its target
  std::map<std::string, std::string> attributes = {};
  std::vector<std::pair<std::string, fuse_ino_t>> children = {};
  std::map<std::string, fuse_ino_t, std::less<>> byName = {};
};

constexpr char kEstimate[] = "user.codex.estimatedHDESize";

std::shared_mutex mutex;  // of the tree
std::deque<Node> nodes(2);
std::atomic<std::uint64_t> requests{0};
double keeps = 0;
unsigned delay = 0;
bool tellsTypes = true;

Node& node(fuse_ino_t id) {
  return nodes.at(id);
}

fuse_ino_t add(fuse_ino_t folder, const std::string& name, Node made) {
  nodes.push_back(std::move(made));
  node(folder).children.emplace_back(name, nodes.size() - 1);
  node(folder).byName.emplace(name, nodes.size() - 1);
  return nodes.size() - 1;
}

fuse_ino_t addFolder(fuse_ino_t folder, const std::string& name) {
  return add(folder, name, {.mode = S_IFDIR | 0755});
}

void addEmpty(fuse_ino_t folder, const std::string& name, const std::string& estimate) {
  add(folder, name, {.attributes = {{kEstimate, estimate}}});
}

void addFile(fuse_ino_t folder, const std::string& name, const std::string& content) {
  add(folder, name, {.size = content.size(), .content = content});
}

void buildClips() {
  const fuse_ino_t clips = addFolder(FUSE_ROOT_ID, "clips");
  add(clips, "A001.ari", {.attributes = {{kEstimate, "1000"}, {"user.codex.decodedSize", "2000"}}});
  add(clips, "A002.ari", {});
  add(clips, "A003.ari", {.attributes = {{"codex.estimatedHDESize", "3000"}}});
  addEmpty(clips, "odd \xff\n name", "  42 ");
  addEmpty(clips, "no number", "12 GB");
  addEmpty(clips, "long", std::string(300, ' ') + "8");
  addFile(clips, ".hidden", "seven b");
  addFile(clips, "._A001.ari", "not listed");
  add(clips, "loop", {.mode = S_IFLNK | 0777, .size = 2, .content = ".."});
  add(clips, "nowhere", {.mode = S_IFLNK | 0777, .size = 7, .content = "missing"});
  addFile(addFolder(clips, "reel"), "real.bin", std::string(5000, 'x'));
}

void buildTree(unsigned long folders, unsigned long files, bool withClips) {
  nodes[FUSE_ROOT_ID].mode = S_IFDIR | 0755;
  const std::string document =
      R"({"status":"initialising","sw_version":"1.2.3","vfs_type":"device","volume_label":"A001"})";
  addFile(FUSE_ROOT_ID, ".codexvfs", document);
  if (withClips) buildClips();
  char name[32];
  for (unsigned long d = 0; d < folders; ++d) {
    std::snprintf(name, sizeof name, "d%05lu", d);
    const fuse_ino_t folder = addFolder(FUSE_ROOT_ID, name);
    for (unsigned long f = 0; f < files; ++f) {
      std::snprintf(name, sizeof name, "f%05lu", f);
      addEmpty(folder, name, std::to_string(1000 + (d + f) % 1000));
    }
  }
}

struct stat statusOf(fuse_ino_t id) {
  const Node& of = node(id);
  struct stat status {};
  status.st_ino = id;
  status.st_mode = of.mode;
  status.st_nlink = S_ISDIR(of.mode) ? 2 : 1;
  status.st_size = static_cast<off_t>(of.size);
  status.st_mtime = 1'700'000'000;
  status.st_uid = getuid();
  status.st_gid = getgid();
  return status;
}

fuse_entry_param entryOf(fuse_ino_t id) {
  fuse_entry_param entry{};
  entry.ino = id;
  entry.attr = statusOf(id);
  entry.attr_timeout = entry.entry_timeout = keeps;
  return entry;
}

void lookUp(fuse_req_t request, fuse_ino_t parent, const char* name) {
  ++requests;
  const std::shared_lock lock(mutex);
  const auto child = node(parent).byName.find(std::string_view(name));
  if (child == node(parent).byName.end()) return void(fuse_reply_err(request, ENOENT));
  const fuse_entry_param entry = entryOf(child->second);
  fuse_reply_entry(request, &entry);
}

void getStatus(fuse_req_t request, fuse_ino_t id, fuse_file_info*) {
  ++requests;
  const std::shared_lock lock(mutex);
  const struct stat status = statusOf(id);
  fuse_reply_attr(request, &status, keeps);
}

void fill(fuse_req_t request, fuse_ino_t id, std::size_t size, off_t from, bool isPlus) {
  ++requests;
  const std::shared_lock lock(mutex);
  const auto& children = node(id).children;
  std::vector<char> buffer(size);
  std::size_t filled = 0;
  for (auto at = static_cast<std::size_t>(from); at < children.size(); ++at) {
    const auto& [name, child] = children[at];
    const auto next = static_cast<off_t>(at + 1);
    std::size_t needed = 0;
    if (isPlus) {
      const fuse_entry_param entry = entryOf(child);
      needed =
          fuse_add_direntry_plus(request, buffer.data() + filled, size - filled, name.c_str(), &entry, next);
    } else {
      struct stat status = statusOf(child);
      if (!tellsTypes) status.st_mode = 0;
      needed = fuse_add_direntry(request, buffer.data() + filled, size - filled, name.c_str(), &status, next);
    }
    if (needed > size - filled) break;
    filled += needed;
  }
  fuse_reply_buf(request, buffer.data(), filled);
}

void readFolder(fuse_req_t request, fuse_ino_t id, std::size_t size, off_t from, fuse_file_info*) {
  fill(request, id, size, from, /*isPlus=*/false);
}
void readFolderPlus(fuse_req_t request, fuse_ino_t id, std::size_t size, off_t from, fuse_file_info*) {
  fill(request, id, size, from, /*isPlus=*/true);
}

void readLink(fuse_req_t request, fuse_ino_t id) {
  ++requests;
  fuse_reply_readlink(request, node(id).content.c_str());
}

void openNode(fuse_req_t request, fuse_ino_t, fuse_file_info* info) {
  ++requests;
  info->direct_io = keeps == 0;
  fuse_reply_open(request, info);
}

void closeNode(fuse_req_t request, fuse_ino_t, fuse_file_info*) {
  ++requests;
  fuse_reply_err(request, 0);
}

void readNode(fuse_req_t request, fuse_ino_t id, std::size_t size, off_t from, fuse_file_info*) {
  ++requests;
  const std::shared_lock lock(mutex);
  const std::string& content = node(id).content;
  const auto at = std::min(static_cast<std::size_t>(from), content.size());
  fuse_reply_buf(request, content.data() + at, std::min(size, content.size() - at));
}

void getAttribute(fuse_req_t request, fuse_ino_t id, const char* name, std::size_t size) {
  std::string value = std::to_string(requests++);
  if (id != FUSE_ROOT_ID || name != std::string_view("user.requests")) {
    if (delay > 0) usleep(delay);
    const std::shared_lock lock(mutex);
    const auto found = node(id).attributes.find(name);
    if (found == node(id).attributes.end()) return void(fuse_reply_err(request, ENODATA));
    value = found->second;
  }
  if (size == 0) return void(fuse_reply_xattr(request, value.size()));
  if (size < value.size()) return void(fuse_reply_err(request, ERANGE));
  fuse_reply_buf(request, value.data(), value.size());
}

void setAttribute(fuse_req_t request, fuse_ino_t id, const char* name, const char* bytes, std::size_t size,
                  int) {
  ++requests;
  const std::string_view attribute(name);
  const std::string value(bytes, size);
  const std::unique_lock lock(mutex);
  if (id == FUSE_ROOT_ID && attribute == "user.document") {
    Node& document = node(node(FUSE_ROOT_ID).byName.at(".codexvfs"));
    document.content = value;
    document.size = value.size();
  } else if (attribute == "user.size") {
    node(id).size = std::strtoull(value.c_str(), nullptr, 10);
  } else {
    return void(fuse_reply_err(request, EROFS));
  }
  fuse_reply_err(request, 0);
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
  const auto isGiven = [&](const char* option) { return textAfter(option, arguments).has_value(); };
  tellsTypes = !isGiven("--no-types");
  buildTree(static_cast<unsigned long>(numberAfter("--folders=", arguments)),
            static_cast<unsigned long>(numberAfter("--files=", arguments)), !isGiven("--no-clips"));

  fuse_lowlevel_ops operations{};
  operations.lookup = lookUp;
  operations.getattr = getStatus;
  operations.readlink = readLink;
  operations.open = operations.opendir = openNode;
  operations.release = operations.releasedir = closeNode;
  operations.read = readNode;
  operations.readdir = readFolder;
  if (tellsTypes) operations.readdirplus = readFolderPlus;
  operations.getxattr = getAttribute;
  operations.setxattr = setAttribute;
  std::string options = "-ofsname=codex0,subtype=" + textAfter("--kind=", arguments).value_or("codexvfs");
  char* own[] = {argv[0], options.data(), nullptr};
  fuse_args fuseArguments = FUSE_ARGS_INIT(2, own);
  fuse_session* const session = fuse_session_new(&fuseArguments, &operations, sizeof operations, nullptr);
  if (session == nullptr || fuse_set_signal_handlers(session) != 0 ||
      fuse_session_mount(session, argv[1]) != 0)
    return 1;
  fuse_loop_config* const loop = fuse_loop_cfg_create();
  const int result = fuse_session_loop_mt(session, loop);
  fuse_loop_cfg_destroy(loop);
  fuse_session_unmount(session);
  fuse_remove_signal_handlers(session);
  fuse_session_destroy(session);
  return result == 0 ? 0 : 1;
}
