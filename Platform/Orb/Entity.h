#pragma once
// A framework entity: a counted object with identity that other components
// find by path and recognise by a type-testing downcast.
#include <string_view>

#include "Brio/Ptr.h"
#include "Orb/EntityPb.h"

#pragma GCC visibility push(default)
namespace Orb {

class Entity : public Brio::PtrInterface, public EntityPb {
public:
   virtual std::string_view entityTypeName() const = 0;

protected:
   ~Entity() override = default;
};

}  // namespace Orb
#pragma GCC visibility pop
