#include "Orb/EntityPb.h"

#include "Orb/Assert.h"

namespace Orb {

void EntityPb::constructFromPbMessage(std::string_view) const {
   assertFail("0", "Only value types support constructFromPbMessage", __FILE__, __LINE__);
}

void EntityPb::witePbMessage(std::string&) const {
   assertFail("0", "Only value types support witePbMessage", __FILE__, __LINE__);
}

}  // namespace Orb
