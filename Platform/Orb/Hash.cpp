#include "Orb/Hash.h"

#include <cstdlib>

namespace Orb {

namespace {

constexpr uint32_t defaultSeed = 0x9e3779b9u;

constexpr uint32_t rotl(uint32_t x, unsigned r) { return (x << r) | (x >> (32 - r)); }

constexpr uint32_t scramble(uint32_t k) {
   k *= 0xcc9e2d51u;
   k = rotl(k, 15);
   return k * 0x1b873593u;
}

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

Hash& Hash::mix(uint32_t word) {
   h_ ^= scramble(word);
   h_ = rotl(h_, 13) * 5 + 0xe6546b64u;
   length_ += 4;
   return *this;
}

Hash& Hash::mixBytes(const void* p, std::size_t n) {
   const auto* b = static_cast<const uint8_t*>(p);
   for (; n >= 4; n -= 4, b += 4) {
      mix(uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24);
   }
   if (n == 0) return *this;
   uint32_t tail = 0;
   for (std::size_t i = n; i-- > 0;) tail = (tail << 8) | b[i];
   h_ ^= scramble(tail);
   length_ += uint32_t(n);
   return *this;
}

uint32_t Hash::result() const {
   uint32_t h = h_ ^ length_;
   h ^= h >> 16;
   h *= 0x85ebca6bu;
   h ^= h >> 13;
   h *= 0xc2b2ae35u;
   h ^= h >> 16;
   return h;
}

uint32_t hashSingleAttr(uint32_t value, uint32_t seed) { return Hash(seed).mix(value).result(); }

}  // namespace Orb
