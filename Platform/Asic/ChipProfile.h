#pragma once
// What a chip can do: its features, each an object of its own type.
#include <unordered_map>

#include "Brio/Ptr.h"
#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Asic {

class Feature : public Brio::PtrInterface {
public:
   virtual Orb::TypeId fwkType() const = 0;

protected:
   ~Feature() override = default;
};

class ChipProfile : public Brio::PtrInterface {
public:
   Brio::Ptr<const Feature> feature(Orb::TypeId type) const {
      auto it = features_.find(type);
      return it == features_.end() ? nullptr : it->second;
   }
   void featureIs(Brio::Ptr<const Feature> f) {
      const Orb::TypeId type = f->fwkType();
      features_.insert_or_assign(type, std::move(f));
   }
   void featureDel(Orb::TypeId type) { features_.erase(type); }

private:
   std::unordered_map<Orb::TypeId, Brio::Ptr<const Feature>> features_;
};

}  // namespace Asic
#pragma GCC visibility pop
