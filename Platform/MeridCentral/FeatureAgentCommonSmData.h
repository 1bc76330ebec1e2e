#pragma once
// State every feature agent shares: which logical module each chip unit is.
// The agent fills it before any table is made; tables need it to address units.
#include <cstdint>
#include <map>

#include "Asic/Index.h"
#include "Brio/Ptr.h"
#include "Orb/Optional.h"

#pragma GCC visibility push(default)
namespace MeridCentral {

class LogicalModInfos : public Brio::PtrInterface {
public:
   Orb::Optional<uint32_t> modId(Asic::UnitId unit) const {
      auto it = modId_.find(unit);
      if (it == modId_.end()) return {};
      return it->second;
   }
   void modIdIs(Asic::UnitId unit, uint32_t modId) { modId_.insert_or_assign(unit, modId); }
   uint32_t modIds() const { return uint32_t(modId_.size()); }

private:
   std::map<Asic::UnitId, uint32_t> modId_;
};

class FeatureAgentCommonSmData : public Brio::PtrInterface {
public:
   const Brio::Ptr<const LogicalModInfos>& logicalModInfos() const { return logicalModInfos_; }
   void logicalModInfosIs(Brio::Ptr<const LogicalModInfos> l) { logicalModInfos_ = std::move(l); }

private:
   Brio::Ptr<const LogicalModInfos> logicalModInfos_;
};

}  // namespace MeridCentral
#pragma GCC visibility pop
