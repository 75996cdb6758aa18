// SPDX-License-Identifier: MIT
#pragma once

// Base classes for test doubles that replace one member: derive and override it; everything else is
// forwarded.

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Platform.h"

namespace kmv {

class ForwardingVolumes : public Volumes {
 public:
  explicit ForwardingVolumes(Volumes& target) : target_(target) {}
  std::vector<URL> mountedVolumeURLs() override { return target_.mountedVolumeURLs(); }
  std::vector<HiddenMount> hiddenMounts() override { return target_.hiddenMounts(); }
  MountEvents mountEvents() override { return target_.mountEvents(); }
  std::optional<Space> spaceAt(const std::string& path) override { return target_.spaceAt(path); }
  std::optional<URL> volumeURL(const URL& url) override { return target_.volumeURL(url); }

 private:
  Volumes& target_;
};

class ForwardingFiles : public Files {
 public:
  explicit ForwardingFiles(Files& target) : target_(target) {}
  FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) override {
    return target_.readRegularFile(path, mostBytes);
  }
  std::unique_ptr<FileStream> openForReading(const std::string& path) override {
    return target_.openForReading(path);
  }
  ItemKind itemKind(const std::string& path) override { return target_.itemKind(path); }
  std::optional<Dictionary> attributesOfItem(const std::string& path) override {
    return target_.attributesOfItem(path);
  }
  std::optional<std::string> realPath(const std::string& path) override { return target_.realPath(path); }
  const std::vector<std::string>& pathAliasPrefixes() override { return target_.pathAliasPrefixes(); }
  std::optional<std::string> currentFolder() override { return target_.currentFolder(); }

 private:
  Files& target_;
};

/// Forwards to `target`, which it owns; install it with one accessor overridden.
class ForwardingPlatform : public Platform {
 public:
  explicit ForwardingPlatform(std::unique_ptr<Platform> target) : target_(std::move(target)) {}
  QueueFactory& queues() override { return target_->queues(); }
  Volumes& volumes() override { return target_->volumes(); }
  Files& files() override { return target_->files(); }
  TreeWalk& treeWalk() override { return target_->treeWalk(); }
  IORegistry& ioRegistry() override { return target_->ioRegistry(); }
  SystemInformation& systemInformation() override { return target_->systemInformation(); }
  Clock& clock() override { return target_->clock(); }
  ExtendedAttributes& extendedAttributes() override { return target_->extendedAttributes(); }
  ChildProcess& childProcess() override { return target_->childProcess(); }
  std::unique_ptr<NetServiceBrowser> makeServiceBrowser() override { return target_->makeServiceBrowser(); }
  std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() override {
    return target_->makeDiskArbitrationSession();
  }

 private:
  std::unique_ptr<Platform> target_;
};

}  // namespace kmv
