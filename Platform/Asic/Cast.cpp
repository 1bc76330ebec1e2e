#include "Asic/Cast.h"

#include <stdexcept>

namespace Asic::Detail {

void raiseCastError(std::string_view from, std::string_view to, std::string value,
                    std::string max) {
   std::string text = "Casting values: cast from ";
   text.append(from).append("{ ").append(value).append(" } to ").append(to);
   text.append(" (max = ").append(max).append(") failed.");
   throw std::range_error(text);
}

}  // namespace Asic::Detail
