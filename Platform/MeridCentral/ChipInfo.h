#pragma once
// What the agent knows about the switching chip: whether it is a test chip and
// how many rows each hardware table has.
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "Asic/ChipProfile.h"
#include "Brio/Ptr.h"

#pragma GCC visibility push(default)
namespace MeridCentral {

class ChipInfo : public Brio::PtrInterface {
public:
   static constexpr uint32_t defaultTableSize = 4096;

   bool isTestChip() const { return isTestChip_; }
   void isTestChipIs(bool t) { isTestChip_ = t; }

   // Rows of the hardware table named by its software table's qualified name.
   uint32_t tableSize(std::string_view tableName) const {
      auto it = tableSizes_.find(tableName);
      return it == tableSizes_.end() ? defaultTableSize : it->second;
   }
   void tableSizeIs(std::string_view tableName, uint32_t rows) {
      tableSizes_.insert_or_assign(std::string(tableName), rows);
   }
   const std::map<std::string, uint32_t, std::less<>>& tableSizes() const { return tableSizes_; }

   const Brio::Ptr<const Asic::ChipProfile>& chipProfile() const { return chipProfile_; }
   void chipProfileIs(Brio::Ptr<const Asic::ChipProfile> p) { chipProfile_ = std::move(p); }

private:
   Brio::Ptr<const Asic::ChipProfile> chipProfile_;
   bool isTestChip_ = true;
   std::map<std::string, uint32_t, std::less<>> tableSizes_;
};

}  // namespace MeridCentral
#pragma GCC visibility pop
