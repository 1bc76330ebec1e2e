#pragma once
// 32-bit hashing shared by every value type, so that all tables spread keys the
// same way whatever the width of the host.
#include <cstddef>
#include <cstdint>

#pragma GCC visibility push(default)
namespace Orb {

struct HashHelper {
   // The process-wide seed: 0x9e3779b9 unless L3TUNNEL_HASH_SEED holds a number
   // when it is first asked for; fixed afterwards, so hashes stay comparable
   // for the life of the process.
   static uint32_t hashSeed32();
};

// Murmur3-style accumulator. Words are mixed as they come; `result()` adds the
// length and a final avalanche so that every input bit reaches every output bit.
// Inline: every table lookup hashes its key, so a call per word would cost more
// than the mixing.
class Hash {
public:
   explicit Hash(uint32_t seed) : h_(seed) {}
   Hash& mix(uint32_t word) {
      h_ ^= scramble(word);
      h_ = rotl(h_, 13) * 5 + 0xe6546b64u;
      length_ += 4;
      return *this;
   }
   // Whole 4-byte chunks are read little-endian whatever the host order; a
   // shorter tail is mixed as one word of its own.
   Hash& mixBytes(const void* p, std::size_t n) {
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
   uint32_t result() const {
      uint32_t h = h_ ^ length_;
      h ^= h >> 16;
      h *= 0x85ebca6bu;
      h ^= h >> 13;
      h *= 0xc2b2ae35u;
      h ^= h >> 16;
      return h;
   }

private:
   static constexpr uint32_t rotl(uint32_t x, unsigned r) { return (x << r) | (x >> (32 - r)); }
   static constexpr uint32_t scramble(uint32_t k) {
      k *= 0xcc9e2d51u;
      k = rotl(k, 15);
      return k * 0x1b873593u;
   }

   uint32_t h_;
   uint32_t length_ = 0;
};

inline uint32_t hashSingleAttr(uint32_t value, uint32_t seed) {
   return Hash(seed).mix(value).result();
}

}  // namespace Orb
#pragma GCC visibility pop
