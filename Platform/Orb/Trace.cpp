#include "Orb/Trace.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <set>

#include "Orb/Env.h"

namespace Orb {

namespace Trace {
// Constant-initialised: static constructors elsewhere may trace before ours run.
constinit std::atomic<uint32_t> generation{limitMask + 1};
}  // namespace Trace

namespace {

struct Item {
   std::string pattern;  // without the trailing '*'
   bool prefix;
   uint32_t level;
};

struct ChannelState {
   explicit ChannelState(const char* env) : envName(env) {}
   const char* envName;
   bool loaded = false;  // until then the environment has not been read
   std::string text;
   std::vector<Item> items;
};

struct State {
   std::mutex mutex;
   ChannelState channels[2] = {ChannelState("L3TUNNEL_TRACE"), ChannelState("L3TUNNEL_FLIT")};
   // Each bad item is reported once per process, however often it is parsed
   // again (a capture restoring the configuration, for one).
   std::set<std::string> reported;
   std::shared_ptr<const Trace::Sink> sink;
};

// Function-local so that it exists whenever the first handle asks.
State& state() {
   static State s;
   return s;
}

ChannelState& channelOf(State& s, Trace::Channel c) { return s.channels[static_cast<uint32_t>(c)]; }

std::string_view trimmed(std::string_view v) {
   constexpr std::string_view blanks = " \t";
   const auto first = v.find_first_not_of(blanks);
   if (first == std::string_view::npos) return {};
   return v.substr(first, v.find_last_not_of(blanks) - first + 1);
}

bool parseItem(std::string_view text, Item& item) {
   std::string_view pattern = text;
   item.level = Trace::maxLevel;
   if (const auto slash = text.find('/'); slash != std::string_view::npos) {
      pattern = text.substr(0, slash);
      const std::string_view level = text.substr(slash + 1);
      if (level.size() != 1 || level[0] < '0' || level[0] > '9') return false;
      item.level = uint32_t(level[0] - '0');
   }
   if (pattern.empty() || pattern.find_first_of(" \t") != std::string_view::npos) return false;
   const auto star = pattern.find('*');
   if (star != std::string_view::npos && star != pattern.size() - 1) return false;
   item.prefix = star != std::string_view::npos;
   item.pattern = std::string(item.prefix ? pattern.substr(0, star) : pattern);
   return true;
}

// Caller holds the mutex.
void parseInto(State& s, ChannelState& channel, std::string_view settings) {
   channel.text = std::string(settings);
   channel.items.clear();
   channel.loaded = true;
   while (!settings.empty()) {
      const auto comma = settings.find(',');
      const std::string_view raw = trimmed(settings.substr(0, comma));
      settings = comma == std::string_view::npos ? std::string_view{} : settings.substr(comma + 1);
      if (raw.empty()) continue;
      Item item;
      if (parseItem(raw, item)) {
         channel.items.push_back(std::move(item));
         continue;
      }
      std::string key = std::string(channel.envName) + '\0' + std::string(raw);
      if (s.reported.insert(std::move(key)).second) {
         const std::string msg =
             std::string(channel.envName) + ": ignoring bad item '" + std::string(raw) + "'\n";
         std::fputs(msg.c_str(), stderr);
         std::fflush(stderr);
      }
   }
}

void ensureLoaded(State& s, ChannelState& channel) {
   if (channel.loaded) return;
   parseInto(s, channel, envValue(channel.envName).value_or(std::string()));
}

// 0 when nothing matches, otherwise the matched level plus one.
uint32_t limitFor(const ChannelState& channel, std::string_view name) {
   uint32_t limit = 0;
   for (const Item& item : channel.items) {
      const bool match = item.prefix ? name.starts_with(item.pattern) : name == item.pattern;
      if (match) limit = item.level + 1;
   }
   return limit;
}

void bumpGeneration() {
   uint32_t next = Trace::generation.load(std::memory_order_relaxed) + Trace::limitMask + 1;
   // Zero is what a fresh handle holds; skipping it keeps fresh handles refreshing.
   if (next == 0) next += Trace::limitMask + 1;
   Trace::generation.store(next, std::memory_order_relaxed);
}

void emit(std::string_view line) {
   std::shared_ptr<const Trace::Sink> sink;
   {
      State& s = state();
      std::lock_guard lock(s.mutex);
      sink = s.sink;
   }
   if (sink && *sink) {
      (*sink)(line);
      return;
   }
   std::string out(line);
   out += '\n';
   std::fwrite(out.data(), 1, out.size(), stderr);
}

}  // namespace

namespace Trace {

void configIs(Channel channel, std::string_view settings) {
   State& s = state();
   std::lock_guard lock(s.mutex);
   parseInto(s, channelOf(s, channel), settings);
   bumpGeneration();
}

std::string config(Channel channel) {
   State& s = state();
   std::lock_guard lock(s.mutex);
   ChannelState& c = channelOf(s, channel);
   ensureLoaded(s, c);
   return c.text;
}

void configIs(std::string_view settings) { configIs(Channel::text, settings); }
std::string config() { return config(Channel::text); }

void sinkIs(Sink sink) {
   State& s = state();
   auto next = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
   std::lock_guard lock(s.mutex);
   s.sink = std::move(next);
}

Sink sink() {
   State& s = state();
   std::lock_guard lock(s.mutex);
   return s.sink ? *s.sink : Sink();
}

}  // namespace Trace

uint32_t TraceHandle::refresh(Trace::Channel channel) const {
   State& s = state();
   std::lock_guard lock(s.mutex);
   ChannelState& c = channelOf(s, channel);
   ensureLoaded(s, c);
   // Read under the mutex: configIs bumps under it too, so the word is never
   // stamped with a generation newer than the items it was computed from.
   const uint32_t word = Trace::generation.load(std::memory_order_relaxed) | limitFor(c, name_);
   (channel == Trace::Channel::text ? textCache_ : flitCache_)
       .store(word, std::memory_order_relaxed);
   return word;
}

TraceLine::TraceLine(const TraceHandle& handle, std::string_view operation) {
   out_ << handle.name() << ": " << operation;
}

TraceLine::~TraceLine() {
   try {
      emit(out_.view());
   } catch (...) {
      // A failing sink must not take the traced operation down with it.
   }
}

TraceCapture::TraceCapture(std::string_view settings)
    : previousConfig_(Trace::config()), previousSink_(Trace::sink()) {
   Trace::sinkIs([this](std::string_view line) { lines_.emplace_back(line); });
   Trace::configIs(settings);
}

TraceCapture::~TraceCapture() {
   Trace::configIs(previousConfig_);
   Trace::sinkIs(std::move(previousSink_));
}

}  // namespace Orb
