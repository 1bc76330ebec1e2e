#pragma once
// Text trace, switched per type name and level. Off by default; a disabled call
// site costs the handle's cached word, the global generation and two compares.
//
//   static Orb::TraceHandle trace{"MeridL3Tunnel::L3EgrL3Ipv4TunnelTable"};
//   ORB_TRACE(trace, 5, "entryRef") << " : Writing entry : " << entry;
//
// L3TUNNEL_TRACE (read at first use) holds comma-separated `PATTERN/LEVEL` items;
// PATTERN is a qualified type name, a prefix ending in '*', or '*'; a missing
// level means 9; later items win for the names they match.
#include <atomic>
#include <cctype>
#include <type_traits>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace Orb {

namespace Trace {

// The text trace and the ring-buffer trace share the matching machinery; each
// has its own configuration.
enum class Channel : uint32_t { text = 0, flit = 1 };

using Sink = std::function<void(std::string_view line)>;

// Bumped by every configuration change of either channel. Handles cache
// `generation | limit` and recompute only when this moves. The low bits are
// always zero so that they can hold the limit.
extern std::atomic<uint32_t> generation;
constexpr uint32_t limitMask = 0xf;
constexpr uint32_t maxLevel = 9;

void configIs(std::string_view settings);
std::string config();
void configIs(Channel channel, std::string_view settings);
std::string config(Channel channel);

// An empty sink means stderr.
void sinkIs(Sink sink);
Sink sink();

}  // namespace Trace

// One per type, usually a static. The name is not copied: it must outlive the
// handle (a literal or a type's `typeName`), which keeps the handle constant-
// initialised and usable from other static constructors.
class TraceHandle {
public:
   constexpr explicit TraceHandle(std::string_view name) : name_(name) {}
   TraceHandle(const TraceHandle&) = delete;
   TraceHandle& operator=(const TraceHandle&) = delete;

   std::string_view name() const { return name_; }
   bool enabled(uint32_t level) const { return level < limit(textCache_, Trace::Channel::text); }
   bool flitEnabled(uint32_t level) const {
      return level < limit(flitCache_, Trace::Channel::flit);
   }

private:
   uint32_t limit(const std::atomic<uint32_t>& cache, Trace::Channel channel) const {
      uint32_t word = cache.load(std::memory_order_relaxed);
      if ((word & ~Trace::limitMask) != Trace::generation.load(std::memory_order_relaxed)) {
         word = refresh(channel);
      }
      return word & Trace::limitMask;
   }
   uint32_t refresh(Trace::Channel channel) const;

   std::string_view name_;
   // Zero never matches a generation, so the first call always refreshes.
   mutable std::atomic<uint32_t> textCache_{0};
   mutable std::atomic<uint32_t> flitCache_{0};
};

// One text line; handed to the sink when the statement ends.
class TraceLine {
public:
   TraceLine(const TraceHandle& handle, std::string_view operation);
   TraceLine(const TraceLine&) = delete;
   TraceLine& operator=(const TraceLine&) = delete;
   ~TraceLine();

   template <class T>
   TraceLine& operator<<(const T& piece) {
      if (first_) separate(piece);
      out_ << piece;
      return *this;
   }

private:
   // Messages mostly open with their own blank or colon; one that starts with
   // a word gets a blank so it does not run into the operation name.
   template <class T>
   void separate(const T& piece) {
      first_ = false;
      if constexpr (std::is_convertible_v<const T&, std::string_view>) {
         std::string_view s(piece);
         if (!s.empty() && std::isalnum(static_cast<unsigned char>(s.front()))) out_ << ' ';
      }
   }

   std::ostringstream out_;
   bool first_ = true;
};

// For tests: switches the text trace to `settings` and collects the lines; the
// previous configuration and sink come back on destruction.
class TraceCapture {
public:
   explicit TraceCapture(std::string_view settings);
   TraceCapture(const TraceCapture&) = delete;
   TraceCapture& operator=(const TraceCapture&) = delete;
   ~TraceCapture();

   const std::vector<std::string>& lines() const { return lines_; }
   void clear() { lines_.clear(); }

private:
   std::string previousConfig_;
   Trace::Sink previousSink_;
   std::vector<std::string> lines_;
};

}  // namespace Orb
#pragma GCC visibility pop

// The streamed pieces are not evaluated when the level is off.
#define ORB_TRACE(handle, level, operation) \
   if (!(handle).enabled(level)) {          \
   } else                                   \
      ::Orb::TraceLine((handle), (operation))
