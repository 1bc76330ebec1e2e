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
class Hash {
public:
   explicit Hash(uint32_t seed) : h_(seed) {}
   Hash& mix(uint32_t word);
   // Whole 4-byte chunks are read little-endian whatever the host order; a
   // shorter tail is mixed as one word of its own.
   Hash& mixBytes(const void* p, std::size_t n);
   uint32_t result() const;

private:
   uint32_t h_;
   uint32_t length_ = 0;
};

uint32_t hashSingleAttr(uint32_t value, uint32_t seed);

}  // namespace Orb
#pragma GCC visibility pop
