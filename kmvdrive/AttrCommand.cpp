// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVExtendedAttributeGatherer.h>
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "kmvdrive/CommandLine.h"

namespace kmv::tool {
namespace {

using Gatherer = KMVExtendedAttributeGatherer;

struct AttrOptions {
  std::string path;
  std::string name;
  std::string value;
};

/// LTFS attributes may be named by their title alone: "startblock" is "ltfs.startblock".
std::string fullName(const std::string& name) {
  constexpr std::string_view kPrefix = "ltfs.";
  for (unsigned i = 0; const auto known = Gatherer::ltfsAttributeNameForAttribute(i); ++i) {
    if (std::string_view(*known).substr(kPrefix.size()) == name) return *known;
  }
  return name;
}

/// Escaped on a terminal, line by line; as it is where a program reads it.
std::string shownOn(int descriptor, const std::string& text) {
  if (isatty(descriptor) != 1) return text;
  std::istringstream lines(text);
  std::string shown;
  for (std::string line; std::getline(lines, line);) shown += visibleText(line) + "\n";
  return shown;
}

/// While it lives, what is written to stderr is kept, and then shown: the attribute tool repeats names in its
/// complaints. Does nothing where no terminal would show it, or no descriptors are left.
class EscapedErrors {
 public:
  EscapedErrors() {
    int ends[2];
    if (isatty(STDERR_FILENO) != 1 || pipe(ends) != 0) return;
    for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
    stderr_ = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    reader_ = std::thread([this, end = ends[0]] { keep(end); });
  }
  ~EscapedErrors() {
    if (!reader_.joinable()) return;
    dup2(stderr_, STDERR_FILENO);
    close(stderr_);
    reader_.join();
    std::fputs(shownOn(STDERR_FILENO, text_).c_str(), stderr);
  }
  EscapedErrors(const EscapedErrors&) = delete;
  EscapedErrors& operator=(const EscapedErrors&) = delete;

 private:
  void keep(int end) {
    char bytes[1024];
    for (ssize_t count = 0; (count = read(end, bytes, sizeof bytes)) > 0;)
      text_.append(bytes, static_cast<std::size_t>(count));
    close(end);
  }

  int stderr_ = -1;
  std::string text_;
  std::thread reader_;
};

std::optional<std::string> printedByTool(std::optional<std::string_view> name, const std::string& path) {
  const EscapedErrors errors;
  return Gatherer::findValueOfExtendedAttributeWithTitle(name, path);
}

ExitCode show(CommandContext& context, const AttrOptions& options, std::optional<std::string_view> name) {
  const auto location = locationOf(options.path);
  const auto value = location ? printedByTool(name, location->path()) : std::string();
  if (!value) {
    std::fputs("kmvdrive: cannot read attributes: /usr/bin/xattr is missing, or its answer is no text\n",
               stderr);
    return ExitCode::error;
  }
  if (value->empty() && name) {
    std::fprintf(stderr, "kmvdrive: \"%s\" has no attribute %s\n", visibleText(options.path).c_str(),
                 visibleText(*name).c_str());
    return ExitCode::notFound;
  }
  if (!value->empty()) context.output.write(shownOn(STDOUT_FILENO, *value + "\n"));
  return ExitCode::ok;
}

ExitCode set(const AttrOptions& options) {
  const auto location = locationOf(options.path);
  const std::string name = fullName(options.name);
  if (location && Gatherer::setValueForLTFSExtendedAttributeAtLocation(location->path(), name, options.value))
    return ExitCode::ok;
  std::fprintf(stderr, "kmvdrive: the system refused to set %s of \"%s\"\n", visibleText(name).c_str(),
               visibleText(options.path).c_str());
  return ExitCode::refused;
}

}  // namespace

void addAttrCommand(CLI::App& app, Action& chosen) {
  CLI::App* command = app.add_subcommand("attr", "List, get and set extended attributes of a file");
  command->require_subcommand(1);
  const auto options = std::make_shared<AttrOptions>();
  const auto add = [&](const char* verb, const char* what, const Action& action) {
    CLI::App* part = command->add_subcommand(verb, what);
    part->add_option("PATH", options->path, "The file")->required();
    chooseWith(*part, chosen, action);
    return part;
  };
  add("list", "Show all attributes",
      [options](CommandContext& context) { return show(context, *options, std::nullopt); });
  CLI::App* get = add("get", "Show one attribute", [options](CommandContext& context) {
    return show(context, *options, fullName(options->name));
  });
  CLI::App* setOne = add("set", "Set one attribute", [options](CommandContext&) { return set(*options); });
  constexpr char kNameHelp[] = "Its name; LTFS attributes also by title alone, as in startblock";
  get->add_option("NAME", options->name, kNameHelp)->required();
  setOne->add_option("NAME", options->name, kNameHelp)->required();
  setOne->add_option("VALUE", options->value, "Its new value")->required();
}

}  // namespace kmv::tool
