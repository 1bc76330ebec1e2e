#include "Output.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace L3TunnelTool {

StdOutput::Buf::Buf(int fd) : buffer_(size_t(1) << 16), fd_(fd) {
   setp(buffer_.data(), buffer_.data() + buffer_.size());
}

void StdOutput::Buf::write(const char* data, size_t size) {
   while (size > 0 && error_ == 0) {
      const ssize_t n = ::write(fd_, data, size);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
         error_ = errno;
         break;
      }
      data += n;
      size -= size_t(n);
   }
}

StdOutput::Buf::int_type StdOutput::Buf::overflow(int_type c) {
   sync();
   if (!traits_type::eq_int_type(c, traits_type::eof())) {
      *pptr() = traits_type::to_char_type(c);
      pbump(1);
   }
   return traits_type::not_eof(c);
}

std::streamsize StdOutput::Buf::xsputn(const char* s, std::streamsize n) {
   if (n > epptr() - pptr()) {
      sync();
      // A large piece goes out as it is rather than through the buffer.
      if (n > epptr() - pptr()) {
         write(s, size_t(n));
         return n;
      }
   }
   traits_type::copy(pptr(), s, size_t(n));
   pbump(int(n));
   return n;
}

// After a failure the output is dropped: the caller reports it at the end.
int StdOutput::Buf::sync() {
   write(pbase(), size_t(pptr() - pbase()));
   setp(buffer_.data(), buffer_.data() + buffer_.size());
   return 0;
}

bool StdOutput::Buf::finish() {
   if (finished_) return error_ == 0;
   finished_ = true;
   sync();
   // A file system may report a failed write only when the file is closed.
   // Closing a duplicate tells as much and leaves the descriptor taken, so
   // that no file opened later becomes standard output.
   if (error_ == 0) {
      const int copy = ::dup(fd_);
      if (copy >= 0 && ::close(copy) != 0) error_ = errno;
   }
   return error_ == 0;
}

bool capableTerminal(int fd) {
   const char* term = std::getenv("TERM");
   return isatty(fd) == 1 && term && *term && std::strcmp(term, "dumb") != 0;
}

}  // namespace L3TunnelTool
