#pragma once
// The agent's local entity tree: entities other components own, mounted under
// paths for readers in the same process.
#include <map>
#include <string>
#include <string_view>

#include "Brio/Ptr.h"
#include "Orb/Entity.h"

#pragma GCC visibility push(default)
namespace Local {

class EntityManager : public Brio::PtrInterface {
public:
   // Null when nothing is mounted at `path`.
   Brio::Ptr<const Orb::Entity> getEntity(std::string_view path) const {
      auto it = entities_.find(path);
      return it == entities_.end() ? nullptr : Brio::Ptr<const Orb::Entity>(it->second);
   }
   void entityIs(std::string_view path, Brio::Ptr<Orb::Entity> e) {
      if (!e) {
         entityDel(path);
         return;
      }
      entities_.insert_or_assign(std::string(path), std::move(e));
   }
   void entityDel(std::string_view path) {
      auto it = entities_.find(path);
      if (it != entities_.end()) entities_.erase(it);
   }
   uint32_t entitys() const { return uint32_t(entities_.size()); }

private:
   std::map<std::string, Brio::Ptr<Orb::Entity>, std::less<>> entities_;
};

}  // namespace Local
#pragma GCC visibility pop
