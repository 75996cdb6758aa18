// SPDX-License-Identifier: MIT
#include "kmvdrive/Screen.h"

#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "kmvdrive/EventLoop.h"

namespace kmv::tool {
namespace {

constexpr std::string_view kEnter = "\x1b[?1049h\x1b[?25l";  // the alternate screen, no cursor
constexpr std::string_view kLeave = "\x1b[?25h\x1b[?1049l";
/// What ends the process without a clean end of the program.
constexpr std::array<int, 7> kEndings{SIGHUP, SIGQUIT, SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL};
/// What asks the program for its clean end, once; the second time ends it.
constexpr std::array<int, 2> kRequests{SIGINT, SIGTERM};

std::atomic<bool> isShown{false};
termios before{};
bool hasInput = false;
bool canBeStopped = false;
struct sigaction beforeInterrupt {};
struct sigaction beforeTermination {};

/// A terminal that takes nothing any more does not keep the program.
void put(std::string_view text) {
  constexpr int kPatienceInMilliseconds = 200;
  pollfd room{STDOUT_FILENO, POLLOUT, 0};
  if (poll(&room, 1, kPatienceInMilliseconds) > 0) (void)!write(STDOUT_FILENO, text.data(), text.size());
}

// Async-signal-safe calls only.
void show() {
  if (isShown.exchange(true)) return;
  if (hasInput) {
    termios quiet = before;
    quiet.c_lflag &= static_cast<tcflag_t>(~(ECHO | ICANON));  // what is typed is not to show
    tcsetattr(STDIN_FILENO, TCSANOW, &quiet);
  }
  put(kEnter);
}

void hide() {
  if (!isShown.exchange(false)) return;
  put(kLeave);
  if (hasInput) tcsetattr(STDIN_FILENO, TCSANOW, &before);
}

/// SA_RESETHAND reset the handler: raised again, the signal has its default action.
void hideAndEnd(int signal) {
  hide();
  raise(signal);
}

/// Installs the handler of the next request, then chains to the one that was there before.
void passOn(int signal) {
  const int savedErrno = errno;
  handleSignal(signal, hideAndEnd, static_cast<int>(SA_RESETHAND | SA_NODEFER));
  const auto earlier = signal == SIGINT ? beforeInterrupt.sa_handler : beforeTermination.sa_handler;
  if (earlier != SIG_DFL && earlier != SIG_IGN) earlier(signal);
  errno = savedErrno;
}

/// As the system stops it: not at all in a group that nobody could continue.
void hideAndStop(int) {
  const int savedErrno = errno;
  hide();
  handleSignal(SIGTSTP, SIG_DFL, 0);
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  raise(SIGTSTP);
  sigprocmask(SIG_UNBLOCK, &stop, nullptr);  // here it stops, and goes on later
  handleSignal(SIGTSTP, hideAndStop, 0);
  show();
  errno = savedErrno;
}

/// However it was stopped, the terminal may have been used meanwhile.
void showAgain(int) {
  const int savedErrno = errno;
  isShown = false;
  show();
  errno = savedErrno;
}

void wakeUp(int) {}

/// True for a signal that somebody else takes care of.
bool isHandled(int signal) {
  struct sigaction action {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_DFL;
}

}  // namespace

Screen::Screen() {
  hasInput = isatty(STDIN_FILENO) == 1 && tcgetattr(STDIN_FILENO, &before) == 0;
  for (const int signal : kEndings) {
    if (!isHandled(signal)) handleSignal(signal, hideAndEnd, static_cast<int>(SA_RESETHAND | SA_NODEFER));
  }
  sigaction(SIGINT, nullptr, &beforeInterrupt);
  sigaction(SIGTERM, nullptr, &beforeTermination);
  for (const int signal : kRequests) handleSignal(signal, passOn, 0);
  canBeStopped = !isHandled(SIGTSTP);
  if (canBeStopped) handleSignal(SIGTSTP, hideAndStop, 0);
  handleSignal(SIGCONT, showAgain, 0);
  handleSignal(SIGWINCH, wakeUp, 0);  // without SA_RESTART: it interrupts the wait
  show();
}

Screen::~Screen() {
  hide();
  sigaction(SIGINT, &beforeInterrupt, nullptr);
  sigaction(SIGTERM, &beforeTermination, nullptr);
  if (canBeStopped) handleSignal(SIGTSTP, SIG_DFL, 0);
  for (const int signal : {SIGCONT, SIGWINCH}) handleSignal(signal, SIG_DFL, 0);
}

Screen::Size Screen::size() {
  winsize window{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) return {};
  return {window.ws_col, window.ws_row};
}

std::string Screen::frame(const std::vector<std::string>& lines) {
  std::string text =
      "\x1b[H";  // to the top; a line is cleared first: behind its end the cursor may stand on it
  for (const std::string& line : lines) {
    if (&line != &lines.front()) text += "\r\n";
    text += "\x1b[K" + line;
  }
  return text + "\x1b[J";
}

std::size_t lineWidth() {
  return isatty(STDOUT_FILENO) == 1 ? Screen::size().columns : SIZE_MAX;
}

bool showsUTF8() {
  for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') continue;
    const std::string_view locale = value;
    return locale.find("UTF-8") != std::string_view::npos || locale.find("utf8") != std::string_view::npos;
  }
  return false;
}

}  // namespace kmv::tool
