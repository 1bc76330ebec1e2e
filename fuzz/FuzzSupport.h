#pragma once
// What every fuzz target shares: how a rejection is told from a fault, the
// checks a successful parse must pass, scratch files, and live entry handles
// that inputs can name.
//
// A parser that rejects its input must throw exactly the exception type its
// caller handles. Anything else (another type, a crash, a leak, undefined
// behaviour) escapes to libFuzzer, which reports it with the input.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "Asic/SwTableBase.h"
#include "Brio/Ptr.h"

namespace Fuzz {

// L3TUNNEL_FUZZ_VERBOSE=1 prints every outcome, for checking what the seeds reach.
bool verbose();
void note(std::string_view what, std::string_view detail);

// A broken promise of a parser that accepted its input: reported as a crash.
[[noreturn]] void fail(std::string_view what, std::string_view detail);
inline void check(bool ok, std::string_view what, std::string_view detail = {}) {
   if (!ok) fail(what, detail);
}

// The message of the last clean rejection.
std::string& lastRejection();

// Runs `parse`. True when it returned; false when it threw exactly `Clean`
// (subclasses are no clean rejection: they say a different fault). Any other
// exception propagates.
template <class Clean, class F>
bool parsedCleanly(std::string_view what, F&& parse) {
   try {
      parse();
      note(what, "accepted");
      return true;
   } catch (const Clean& e) {
      if (typeid(e) != typeid(Clean)) throw;
      lastRejection() = e.what();
      note(what, e.what());
      return false;
   }
}

// Reads the input front to back: selector bytes first, the rest is text.
class Input {
public:
   Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
   uint8_t byte() { return pos_ < size_ ? data_[pos_++] : 0; }
   std::string_view rest() const {
      return {reinterpret_cast<const char*>(data_) + pos_, size_ - pos_};
   }

private:
   const uint8_t* data_;
   size_t size_;
   size_t pos_ = 0;
};

// A directory of its own under TMPDIR (or /dev/shm, or /tmp), removed at exit.
const std::string& scratchDir();
void fileIs(const std::string& path, std::string_view bytes);
std::string fileContent(const std::string& path);

// Entry handles that live for the whole run. "$0" to "$3" in an input stand
// for their text forms, so that inputs can name a live handle although its
// address changes from run to run.
class LiveHandle final : public Asic::SwTableBase::EntryHandle {
public:
   static constexpr std::string_view typeName = "Fuzz::LiveHandle";
   Orb::TypeId fwkType() const override;
   std::string keyText() const override { return "fuzz"; }

private:
   ~LiveHandle() override = default;
};
const std::vector<Brio::Ptr<LiveHandle>>& liveHandles();
std::string withLiveHandles(std::string_view text);

}  // namespace Fuzz
