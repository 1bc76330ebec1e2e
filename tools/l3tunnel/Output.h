#pragma once
// Standard output, written by the program itself so that every failed write is
// seen: the first error is kept, later output is dropped, and the run goes on
// (the state directory is saved whatever happens to the output).
#include <ostream>
#include <streambuf>
#include <vector>

namespace L3TunnelTool {

// A terminal that takes escape sequences: TERM names one ("dumb" takes none).
bool capableTerminal(int fd);

class StdOutput : public std::ostream {
public:
   // Standard output, or the descriptor given (an agent's client).
   explicit StdOutput(int fd = 1) : std::ostream(&buf_), buf_(fd) {}
   ~StdOutput() override { buf_.finish(); }
   StdOutput(const StdOutput&) = delete;
   StdOutput& operator=(const StdOutput&) = delete;

   // Writes what is buffered and closes (a copy of) the descriptor. False,
   // with error() set, when anything written so far has failed.
   bool finish() { return buf_.finish(); }
   // The errno of the first failed write or close; 0 while none failed.
   int error() const { return buf_.error(); }

private:
   class Buf : public std::streambuf {
   public:
      explicit Buf(int fd);
      bool finish();
      int error() const { return error_; }

   private:
      int_type overflow(int_type c) override;
      std::streamsize xsputn(const char* s, std::streamsize n) override;
      int sync() override;
      void write(const char* data, size_t size);

      std::vector<char> buffer_;
      int fd_;
      int error_ = 0;
      bool finished_ = false;
   };
   Buf buf_;
};

}  // namespace L3TunnelTool
