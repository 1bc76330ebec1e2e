#include "Orb/Hash.h"

#include <cstdlib>

namespace Orb {

namespace {

constexpr uint32_t defaultSeed = 0x9e3779b9u;

// Only a plain unsigned number that fits 32 bits counts; anything else (a sign,
// trailing junk, an overflow) keeps the reproducible default rather than
// silently truncating.
uint32_t seedFromEnvironment() {
   const char* text = std::getenv("L3TUNNEL_HASH_SEED");
   if (!text || *text < '0' || *text > '9') return defaultSeed;
   char* end = nullptr;
   const unsigned long long v = std::strtoull(text, &end, 0);
   if (*end != '\0' || v > 0xffffffffull) return defaultSeed;
   return uint32_t(v);
}

}  // namespace

uint32_t HashHelper::hashSeed32() {
   static const uint32_t seed = seedFromEnvironment();
   return seed;
}

}  // namespace Orb
