#include "StateDir.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace L3TunnelTool {

namespace fs = std::filesystem;

namespace {

constexpr const char* stateFileName = "chip.state";
constexpr const char* lockFileName = "lock";

// The pid the holder wrote into the lock file, or "" when there is none yet.
std::string holderOf(int fd) {
   char text[32] = {};
   const ssize_t n = ::pread(fd, text, sizeof text - 1, 0);
   std::string pid;
   for (ssize_t i = 0; i < n && text[i] >= '0' && text[i] <= '9'; ++i) pid += text[i];
   return pid;
}

}  // namespace

StateDir::StateDir(std::string dir)
    : dir_(std::move(dir)), statePath_((fs::path(dir_) / stateFileName).string()) {
   std::error_code ec;
   if (fs::exists(dir_, ec) && !fs::is_directory(dir_, ec))
      throw StateDirError{dir_ + ": not a directory", false};
   fs::create_directories(dir_, ec);
   if (ec) throw StateDirError{dir_ + ": cannot make the state directory: " + ec.message(), false};

   const std::string lockPath = (fs::path(dir_) / lockFileName).string();
   lockFd_ = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
   if (lockFd_ < 0)
      throw StateDirError{lockPath + ": cannot open the lock file: " + std::strerror(errno), false};
   if (::flock(lockFd_, LOCK_EX | LOCK_NB) != 0) {
      const int e = errno;
      const std::string pid = e == EWOULDBLOCK ? holderOf(lockFd_) : "";
      ::close(lockFd_);
      lockFd_ = -1;
      if (e != EWOULDBLOCK)
         throw StateDirError{lockPath + ": cannot lock: " + std::strerror(e), false};
      throw StateDirError{dir_ + ": another l3tunnel run" +
                              (pid.empty() ? "" : " (pid " + pid + ")") +
                              " holds this state directory",
                          true};
   }
   const std::string pid = std::to_string(::getpid()) + "\n";
   // Only for the message of a run refused; the lock works without it.
   if (::ftruncate(lockFd_, 0) == 0) (void)!::pwrite(lockFd_, pid.data(), pid.size(), 0);

   const std::string tmpPrefix = std::string(stateFileName) + ".tmp.";
   for (fs::directory_iterator it(dir_, ec), end; !ec && it != end; it.increment(ec)) {
      std::error_code ignored;  // one that stays is no harm: the save makes its own
      if (it->path().filename().string().starts_with(tmpPrefix)) fs::remove(it->path(), ignored);
   }
}

StateDir::~StateDir() {
   if (lockFd_ >= 0) ::close(lockFd_);
}

bool StateDir::stateExists() const {
   struct stat st {};
   // Anything but "nothing there" is for the loader to open or refuse.
   return ::lstat(statePath_.c_str(), &st) == 0 || errno != ENOENT;
}

}  // namespace L3TunnelTool
