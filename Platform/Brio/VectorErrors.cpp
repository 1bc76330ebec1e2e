#include "Brio/VectorErrors.h"

#include <stdexcept>
#include <string>

namespace Brio {

void throwVectorOutOfRange(uint32_t position, uint32_t size) {
   throw std::out_of_range("vector index out of range: position " + std::to_string(position) +
                           ", size " + std::to_string(size));
}

void throwVectorEmpty() { throw std::out_of_range("pop from an empty vector"); }

}  // namespace Brio
