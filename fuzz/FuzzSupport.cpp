#include "FuzzSupport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace Fuzz {

bool verbose() {
   static const bool on = [] {
      const char* v = std::getenv("L3TUNNEL_FUZZ_VERBOSE");
      return v && *v && std::strcmp(v, "0") != 0;
   }();
   return on;
}

void note(std::string_view what, std::string_view detail) {
   if (!verbose()) return;
   std::fprintf(stderr, "%.*s: %.*s\n", int(what.size()), what.data(), int(detail.size()),
                detail.data());
}

std::string& lastRejection() {
   static std::string message;
   return message;
}

void fail(std::string_view what, std::string_view detail) {
   std::fprintf(stderr, "FUZZ CHECK FAILED: %.*s\n  %.*s\n", int(what.size()), what.data(),
                int(detail.size()), detail.data());
   std::fflush(stderr);
   std::abort();
}

namespace {

std::string makeScratchDir() {
   std::string base;
   if (const char* t = std::getenv("TMPDIR"); t && *t)
      base = t;
   else if (::access("/dev/shm", W_OK) == 0)
      base = "/dev/shm";  // the chip's saves sync to disk; memory keeps that cheap
   else
      base = "/tmp";
   std::string templ = base + "/l3tunnel-fuzz-XXXXXX";
   if (!::mkdtemp(templ.data())) {
      std::perror(templ.c_str());
      std::abort();
   }
   return templ;
}

struct Scratch {
   std::string dir = makeScratchDir();
   ~Scratch() {
      std::error_code ignored;
      std::filesystem::remove_all(dir, ignored);
   }
};

}  // namespace

const std::string& scratchDir() {
   static Scratch scratch;
   return scratch.dir;
}

void fileIs(const std::string& path, std::string_view bytes) {
   std::ofstream out(path, std::ios::binary | std::ios::trunc);
   out.write(bytes.data(), std::streamsize(bytes.size()));
   if (!out.flush()) fail("cannot write the scratch file", path);
}

std::string fileContent(const std::string& path) {
   std::ifstream in(path, std::ios::binary);
   if (!in) fail("cannot read the scratch file", path);
   std::ostringstream text;
   text << in.rdbuf();
   return text.str();
}

Orb::TypeId LiveHandle::fwkType() const { return Orb::typeId<LiveHandle>(); }

const std::vector<Brio::Ptr<LiveHandle>>& liveHandles() {
   static const std::vector<Brio::Ptr<LiveHandle>> handles = [] {
      std::vector<Brio::Ptr<LiveHandle>> v;
      for (int i = 0; i < 4; ++i) v.push_back(Brio::makePtr<LiveHandle>());
      return v;
   }();
   return handles;
}

std::string withLiveHandles(std::string_view text) {
   std::string out;
   out.reserve(text.size());
   const auto& handles = liveHandles();
   for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '$' && i + 1 < text.size() && text[i + 1] >= '0' &&
          size_t(text[i + 1] - '0') < handles.size()) {
         out +=
             Asic::SwTableBase::EntryHandle::handleText(handles[size_t(text[i + 1] - '0')].ptr());
         ++i;
      } else {
         out += text[i];
      }
   }
   return out;
}

}  // namespace Fuzz
