// SPDX-License-Identifier: MIT
// A copy loop that reports what it moves, for drives that the system cannot measure (FUSE, network), and what
// the monitor makes of it: report_activity FOLDER. Writes a file of some megabytes into the folder for about
// three seconds, and takes it away again.
#include <KMVDriveLibrary/KMVDriveLibrary.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kBlock = 256 * 1024;
constexpr int kBlocks = 30;
constexpr std::chrono::milliseconds kPace{100};  // as if the medium were slow

bool writeSlowly(const std::filesystem::path& file, const kmv::URL& url) {
  const std::vector<char> block(kBlock, 'x');
  kmv::IOMeter meter(url, "com.example.copier");
  std::ofstream out(file, std::ios::binary);
  for (int i = 0; i < kBlocks && out; ++i) {
    out.write(block.data(), static_cast<std::streamsize>(block.size()));
    out.flush();
    if (out) meter.wrote(block.size());
    std::this_thread::sleep_for(kPace);
  }
  return out.good();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: report_activity FOLDER\n";
    return 2;
  }
  const auto file = std::filesystem::absolute(argv[1]) / "report_activity.tmp";
  const kmv::URL url = kmv::URL::fileURLWithPath(file.string(), /*isDirectory=*/false);

  const auto observer = kmv::NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterDriveActivityDidUpdateNotification, [](const kmv::Notification& notification) {
        // On the monitor's own queue. Rates come from the helper, which leaves out what is no rate.
        for (const auto& [drive, activity] : kmv::driveActivities(notification)) {
          const auto written = activity->writeDelta();
          const auto rate = written == nullptr ? std::nullopt : kmv::bytesPerSecond(*written);
          if (rate) std::printf("%s  %.1f MB/s written\n", drive.path().c_str(), *rate / 1e6);
        }
      });
  KMVDiskArbiter::sharedInstance().startArbiter();
  const auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  while (monitor.loadCycles() < 5)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // they are silent
  const bool done = writeSlowly(file, url);
  std::filesystem::remove(file);
  if (!done) std::cerr << "cannot write into " << argv[1] << '\n';
  return done ? 0 : 1;
}
