// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Attributes.h>
#include <KMVDriveLibrary/KMVExtendedAttributeGatherer.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "kmvdrive/CommandLine.h"
#include "kmvdrive/ValueJSON.h"

namespace kmv::tool {
namespace {

using Gatherer = KMVExtendedAttributeGatherer;

struct AttrOptions {
  std::string path;
  std::string name;
  std::string value;
  bool json = false;
};

Data dataOf(const std::string& bytes) {
  const auto* const first = reinterpret_cast<const std::byte*>(bytes.data());
  return Data(first, first + bytes.size());
}

/// LTFS attributes may be named by their title alone: "startblock" is "ltfs.startblock".
std::string fullName(const std::string& name) {
  constexpr std::string_view kPrefix = "ltfs.";
  for (unsigned i = 0; const auto known = Gatherer::ltfsAttributeNameForAttribute(i); ++i) {
    if (std::string_view(*known).substr(kPrefix.size()) == name) return *known;
  }
  return name;
}

/// Escaped on a terminal; the bytes as they are where a program reads them.
std::string shownOnOutput(const std::string& bytes) {
  return isatty(STDOUT_FILENO) == 1 ? visibleText(bytes) : bytes;
}

/// Says why on stderr.
ExitCode failed(AttributeError error, const AttrOptions& options, const std::string& name = {}) {
  const std::string path = visibleText(options.path), shownName = visibleText(name);
  switch (error) {
    case AttributeError::noItem:
      std::fprintf(stderr, "kmvdrive: there is no \"%s\"\n", path.c_str());
      return ExitCode::notFound;
    case AttributeError::noAttribute:
      std::fprintf(stderr, "kmvdrive: \"%s\" has no attribute %s\n", path.c_str(), shownName.c_str());
      return ExitCode::notFound;
    case AttributeError::refused:
      std::fprintf(stderr, "kmvdrive: the system refused access to %s of \"%s\"\n",
                   name.empty() ? "the attributes" : shownName.c_str(), path.c_str());
      return ExitCode::refused;
    case AttributeError::none:
      break;
  }
  return ExitCode::ok;
}

std::string absolutePath(const AttrOptions& options) {
  const auto location = locationOf(options.path);
  return location ? location->path() : std::string();
}

ExitCode listAttributes(CommandContext& context, const AttrOptions& options) {
  const std::string path = absolutePath(options);
  const AttributeNames all = attributeNames(path);
  if (all.error != AttributeError::none) return failed(all.error, options);
  JSON document = {{"attributes", JSON::object()}};
  std::string text;
  for (const std::string& name : all.names) {
    const AttributeValue value = attributeValue(path, name);
    if (value.error == AttributeError::noAttribute) continue;  // removed meanwhile
    if (value.error != AttributeError::none) return failed(value.error, options, name);
    document["attributes"][name] = jsonOf(Value(dataOf(value.bytes)));
    text += shownOnOutput(name) + ": " + shownOnOutput(value.bytes) + "\n";
  }
  context.output.write(options.json ? jsonLine(document) : text);
  return ExitCode::ok;
}

ExitCode getAttribute(CommandContext& context, const AttrOptions& options) {
  const std::string name = fullName(options.name);
  const AttributeValue value = attributeValue(absolutePath(options), name);
  if (value.error != AttributeError::none) return failed(value.error, options, name);
  const bool isTerminal = isatty(STDOUT_FILENO) == 1;
  context.output.write(shownOnOutput(value.bytes) + (isTerminal ? "\n" : ""));
  return ExitCode::ok;
}

ExitCode setAttribute(const AttrOptions& options) {
  const std::string name = fullName(options.name);
  return failed(setAttributeValue(absolutePath(options), name, options.value), options, name);
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
  CLI::App* listAll = add("list", "Show all attributes",
                          [options](CommandContext& context) { return listAttributes(context, *options); });
  listAll->add_flag("--json", options->json, "Print one JSON object, with the values in base 64");
  CLI::App* getOne = add("get", "Print the bytes of one attribute",
                         [options](CommandContext& context) { return getAttribute(context, *options); });
  CLI::App* setOne =
      add("set", "Set one attribute", [options](CommandContext&) { return setAttribute(*options); });
  constexpr char kNameHelp[] = "Its name; LTFS attributes also by title alone, as in startblock";
  getOne->add_option("NAME", options->name, kNameHelp)->required();
  setOne->add_option("NAME", options->name, kNameHelp)->required();
  setOne->add_option("VALUE", options->value, "Its new value")->required();
}

}  // namespace kmv::tool
