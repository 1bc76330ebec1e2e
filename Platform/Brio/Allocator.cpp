#include "Brio/Allocator.h"

#include <functional>
#include <map>
#include <string>

#include "Orb/Assert.h"

namespace Brio {

namespace {

// Nodes never move, and tags are few and live for the process.
std::map<std::string, MemoryTracker::Usage, std::less<>>& usages() {
   static std::map<std::string, MemoryTracker::Usage, std::less<>> m;
   return m;
}

}  // namespace

MemoryTracker::Usage MemoryTracker::usage(std::string_view tag) {
   const auto& m = usages();
   const auto it = m.find(tag);
   return it == m.end() ? Usage{} : it->second;
}

void MemoryTracker::allocated(std::string_view tag, uint64_t bytes) {
   auto& m = usages();
   auto it = m.find(tag);
   if (it == m.end()) it = m.emplace(std::string(tag), Usage{}).first;
   it->second.bytes += bytes;
   ++it->second.blocks;
}

void MemoryTracker::freed(std::string_view tag, uint64_t bytes) noexcept {
   auto& m = usages();
   const auto it = m.find(tag);
   ORB_ASSERT(it != m.end()) << "freeing memory of tag " << tag << " that never allocated";
   Usage& u = it->second;
   ORB_ASSERT(u.bytes >= bytes && u.blocks > 0)
       << "tag " << tag << " frees " << bytes << " bytes but holds " << u.bytes << " in "
       << u.blocks << " blocks";
   u.bytes -= bytes;
   --u.blocks;
}

}  // namespace Brio
