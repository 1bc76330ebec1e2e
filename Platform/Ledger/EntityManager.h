#pragma once
// The state database's entity tree: entities mounted under paths.
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "Brio/Ptr.h"

#pragma GCC visibility push(default)
namespace Ledger {

class EntityManager : public Brio::PtrInterface {
public:
   Brio::Ptr<Brio::PtrInterface> entity(std::string_view path) const {
      auto it = entities_.find(path);
      return it == entities_.end() ? nullptr : it->second;
   }
   void entityIs(std::string_view path, Brio::Ptr<Brio::PtrInterface> e) {
      if (e)
         entities_.insert_or_assign(std::string(path), std::move(e));
      else
         entityDel(path);
   }
   void entityDel(std::string_view path) {
      auto it = entities_.find(path);
      if (it != entities_.end()) entities_.erase(it);
   }
   uint32_t entitys() const { return uint32_t(entities_.size()); }

private:
   std::map<std::string, Brio::Ptr<Brio::PtrInterface>, std::less<>> entities_;
};

}  // namespace Ledger
#pragma GCC visibility pop
