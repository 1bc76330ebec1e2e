// The stages of `l3tunnel run` on a large generated scenario: 10000 overlay
// groups of 6 vias each over a pool of 30000 tunnels, so that groups share
// tunnels (each tunnel is in about two groups). The benchmark plays the
// program: it reads the scenario, runs the agent over every step, and prints
// the final snapshot once as JSON and once as text into a stream that counts
// the bytes and drops them, so the disk is not measured.
//
// Counters (times are the fastest iteration of each stage):
//   read_ms          the scenario's text copied as the program reads it
//                    from its file, and scenarioParse
//   program_ms       Agent made and started, each step run and settled
//   json_ms, text_ms the snapshot printed as JSON, and as text
//   teardown_ms      the Agent let go, as the program does before it ends
//                    (in neither side of the target)
//   json_bytes, text_bytes   the size of each output
//   json_ratio, text_ratio   (read + output) / program; target <= 2
//   held_bytes       heap live after programming less heap live before the
//                    Agent was made: the library's tables, the simulated
//                    chip's rows (chip_bytes of it) and what the Agent keeps
//                    (its copy of the scenario, each group's vias)
//   file_bytes       the scenario's text
//   scenario_bytes   heap the parsed scenario holds
//   peak_json_bytes, peak_text_bytes   the most heap live at once from
//                    reading to the end of that output, less the heap live
//                    before reading (the run of the program with that output)
//   peak_ratio       the larger peak / held_bytes; target <= 2
// Heap bytes are those asked of the allocator (MemoryBench.cpp counts them),
// from the first iteration; run the benchmark in a process of its own, or
// pools grown by earlier benchmarks hide part of what the agent holds.
#include <algorithm>
#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Agent.h"
#include "BenchRig.h"
#include "HeapCount.h"
#include "HumanOutput.h"
#include "JsonOutput.h"
#include "JsonWriter.h"
#include "Scenario.h"
#include "Snapshot.h"

namespace bench {
namespace {

using L3TunnelTool::Agent;
using L3TunnelTool::Scenario;
using Clock = std::chrono::steady_clock;

constexpr uint32_t groups = 10000;
constexpr uint32_t viasPerGroup = 6;
constexpr uint32_t tunnelPool = 30000;
constexpr uint32_t tunnelsUsed = 27855;  // of the pool, by the formula below

// The scenario's JSON text. Via `v` of group `g` goes to tunnel
// (7g + 5003v) mod 30000: six distinct tunnels per group, 27855 tunnels
// in all, each in about two groups.
std::string scenarioText() {
   std::string s = R"({"chip":{"tableSizes":{)";
   const char* sep = "";
   for (auto name : tableNames) {
      s += sep;
      s += '"';
      s += L3TunnelTool::unqualifiedName(name);
      s += R"(":65536)";
      sep = ",";
   }
   s += R"(}},"underlay":[{"adjId":1},{"adjId":2},{"adjId":3}],"steps":[)";
   for (uint32_t g = 0; g < groups; ++g) {
      s += g ? "," : "";
      s += R"({"op":"program","group":"g)" + std::to_string(g) + R"(","vias":[)";
      for (uint32_t v = 0; v < viasPerGroup; ++v) {
         const uint32_t t = (g * 7 + v * 5003) % tunnelPool;
         s += v ? "," : "";
         s += R"({"nhEntryType":"nextHopArpResolved","srcIpAddr":"192.0.2.1","dstIpAddr":"10.)";
         s += std::to_string(t >> 16) + "." + std::to_string((t >> 8) & 255) + "." +
              std::to_string(t & 255);
         s += R"(","ttl":64,"weight":1,"underlayAdjId":{"adjId":)" + std::to_string(1 + v % 3) +
              "}}";
      }
      s += "]}";
   }
   s += "]}";
   return s;
}

// Output that is counted and dropped, through a buffer the size of the
// program's own, so that what is measured is making the text.
class CountingBuf : public std::streambuf {
public:
   CountingBuf() : buffer_(size_t(1) << 16) {
      setp(buffer_.data(), buffer_.data() + buffer_.size());
   }
   uint64_t bytes() const { return bytes_ + uint64_t(pptr() - pbase()); }

private:
   int_type overflow(int_type c) override {
      sync();
      if (!traits_type::eq_int_type(c, traits_type::eof())) {
         *pptr() = traits_type::to_char_type(c);
         pbump(1);
      }
      return traits_type::not_eof(c);
   }
   std::streamsize xsputn(const char* s, std::streamsize n) override {
      if (n > epptr() - pptr()) {
         sync();
         // The program writes a large piece out as it is, without a copy.
         if (n > epptr() - pptr()) {
            bytes_ += uint64_t(n);
            return n;
         }
      }
      traits_type::copy(pptr(), s, size_t(n));
      pbump(int(n));
      return n;
   }
   int sync() override {
      bytes_ += uint64_t(pptr() - pbase());
      setp(buffer_.data(), buffer_.data() + buffer_.size());
      return 0;
   }

   std::vector<char> buffer_;
   uint64_t bytes_ = 0;
};

double msSince(Clock::time_point t0) {
   return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

// Live heap bytes of the simulated chip's row texts, as BenchRig counts them.
int64_t chipRowBytes(const AsicSim::Chip& chip) {
   int64_t n = 0;
   for (auto& name : chip.tableNames()) {
      for (Asic::UnitId unit : {Asic::UnitId(0), L3TunnelOverlayEcmpProgrammer::tableUnit}) {
         auto t = chip.table(name, unit);
         if (!t) continue;
         for (Asic::Index i = 0; i < t->numEntries(); ++i)
            if (const std::string* r = t->row(i); r && r->capacity() > 15)
               n += int64_t(r->capacity() + 1);
      }
   }
   return n;
}

struct Output {
   double ms = 0;
   uint64_t bytes = 0;
   int64_t peak = 0;  // the most heap live at once, above the run's start
};

// One output of the agent's final state, as the program prints it.
template <class Print>
Output outputRun(const Agent& agent, int64_t base, Print print) {
   heapPeakReset();
   const auto t0 = Clock::now();
   CountingBuf buf;
   std::ostream os(&buf);
   {
      const L3TunnelTool::Snapshot s(agent);
      print(os, s, s.run(L3TunnelTool::RunView{}));
   }
   return {msSince(t0), buf.bytes(), heapPeak() - base};
}

// One run of the program with both outputs; heap figures are above the
// heap live before reading.
struct Run {
   double readMs = 0;
   double programMs = 0;
   double teardownMs = 0;
   Output json;
   Output text;
   int64_t scenarioBytes = 0;
   int64_t held = 0;
   int64_t chipBytes = 0;
   int64_t programPeak = 0;
};

// Empty when the run went wrong; the reason is then reported in `state`.
std::optional<Run> programRun(benchmark::State& state, const std::string& text) {
   Run r;
   const int64_t base = heapLive();
   heapPeakReset();
   auto t0 = Clock::now();
   Scenario scenario;
   {
      // The program holds the file's text while it parses it.
      std::string file;
      file.reserve(text.size());
      file.append(text);
      scenario = L3TunnelTool::scenarioParse(file, "generated.json");
   }
   r.readMs = msSince(t0);
   r.scenarioBytes = heapLive() - base;
   if (!check(state, scenario.steps.size() == groups, "the scenario's steps were not all read"))
      return std::nullopt;
   // The agent would fix the toggles for the whole process; the other
   // benchmarks run with those the process started with.
   if (!check(state,
              L3TunnelOverlayEcmpProgrammer::commonIifOifIndex() ==
                  scenario.toggles.at("CommonIifOifIndex"),
              "runs with the default toggles only"))
      return std::nullopt;

   const int64_t beforeAgent = heapLive();
   t0 = Clock::now();
   std::optional<Agent> agent;
   agent.emplace(scenario);
   agent->start(false);
   for (const auto& step : scenario.steps) {
      agent->stepRun(step);
      agent->settle();
   }
   agent->settle();
   r.programMs = msSince(t0);
   r.held = heapLive() - beforeAgent;
   r.programPeak = heapPeak() - base;
   bool ok = agent->groups().size() == groups;
   for (const auto& [name, block] : agent->groups()) ok &= block->entryState() == State::success;
   if (!check(state, ok, "a group's block was not programmed") ||
       !check(state, agent->programmer()->l3EgrL3Ipv4TunnelTable()->entryHandles() == tunnelsUsed,
              "the groups do not share tunnels as generated"))
      return std::nullopt;
   r.chipBytes = chipRowBytes(agent->chip());

   r.json = outputRun(*agent, base, [](std::ostream& os, const auto& s, const auto& run) {
      L3TunnelTool::JsonWriter w(os);
      L3TunnelTool::snapshotJsonWrite(w, s, run, nullptr);
      w.flush();
   });
   r.text = outputRun(*agent, base, [](std::ostream& os, const auto& s, const auto& run) {
      L3TunnelTool::humanPrint(os, s, run, 0, L3TunnelTool::HumanStyle{});
   });
   // Either output has a line or an object for each member row, and more.
   const uint64_t least = uint64_t(groups) * viasPerGroup * 32;
   if (!check(state, r.json.bytes > least && r.text.bytes > least, "an output is too short"))
      return std::nullopt;

   t0 = Clock::now();
   agent.reset();
   r.teardownMs = msSince(t0);
   return r;
}

void BM_ProgramStages(benchmark::State& state) {
   const std::string text = scenarioText();
   std::optional<Run> first;
   Run best;  // the fastest of each stage
   for (auto _ : state) {
      const std::optional<Run> r = programRun(state, text);
      if (!r) return;
      state.SetIterationTime((r->readMs + r->programMs + r->json.ms + r->text.ms + r->teardownMs) /
                             1e3);
      if (!first) {
         first = r;
         best = *r;
      }
      best.readMs = std::min(best.readMs, r->readMs);
      best.programMs = std::min(best.programMs, r->programMs);
      best.teardownMs = std::min(best.teardownMs, r->teardownMs);
      best.json.ms = std::min(best.json.ms, r->json.ms);
      best.text.ms = std::min(best.text.ms, r->text.ms);
   }
   // Pools that the first run grew serve the later ones: heap from the first.
   const Run& h = *first;
   const int64_t peakJson = std::max(h.programPeak, h.json.peak);
   const int64_t peakText = std::max(h.programPeak, h.text.peak);
   auto bytes = [](int64_t n) {
      return benchmark::Counter(double(n), benchmark::Counter::kDefaults,
                                benchmark::Counter::kIs1024);
   };
   auto& c = state.counters;
   c["groups"] = groups;
   c["vias"] = double(groups * viasPerGroup);
   c["read_ms"] = best.readMs;
   c["program_ms"] = best.programMs;
   c["json_ms"] = best.json.ms;
   c["text_ms"] = best.text.ms;
   c["teardown_ms"] = best.teardownMs;
   c["json_ratio"] = (best.readMs + best.json.ms) / best.programMs;
   c["text_ratio"] = (best.readMs + best.text.ms) / best.programMs;
   c["json_bytes"] = bytes(int64_t(h.json.bytes));
   c["text_bytes"] = bytes(int64_t(h.text.bytes));
   c["file_bytes"] = bytes(int64_t(text.size()));
   c["scenario_bytes"] = bytes(h.scenarioBytes);
   c["held_bytes"] = bytes(h.held);
   c["chip_bytes"] = bytes(h.chipBytes);
   c["peak_json_bytes"] = bytes(peakJson);
   c["peak_text_bytes"] = bytes(peakText);
   c["peak_ratio"] = double(std::max(peakJson, peakText)) / double(h.held);
   state.SetLabel(toggleLabel());
}

const bool registered = [] {
   benchmark::RegisterBenchmark("l3tunnel/ProgramStages", BM_ProgramStages)
       ->UseManualTime()
       ->Unit(benchmark::kMillisecond)
       ->Iterations(iterations(5))
       ->Repetitions(1);
   return true;
}();

}  // namespace
}  // namespace bench
