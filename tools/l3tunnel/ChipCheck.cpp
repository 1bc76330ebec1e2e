#include "ChipCheck.h"

#include <stdexcept>
#include <vector>

#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "MeridL3Tunnel/RowReferences.h"
#include "Scenario.h"

namespace L3TunnelTool {

namespace {

constexpr Asic::UnitId unit = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::tableUnit;

std::string rowsText(std::string_view table, uint32_t rows) {
   return std::string(unqualifiedName(table)) + " (" + std::to_string(rows) + " rows)";
}

}  // namespace

void chipRowReferencesCheck(const AsicSim::Chip& chip, const std::string& path,
                            const std::function<uint32_t(std::string_view)>& rows) {
   using MeridL3Tunnel::rowReferences;
   for (const auto& name : chip.tableNames()) {
      const auto t = chip.table(name, unit);
      if (!t) continue;
      auto fail = [&](Asic::Index i, const std::string& what) {
         throw std::runtime_error(path + ": " + std::string(unqualifiedName(name)) + " row " +
                                  std::to_string(i) + ": " + what);
      };
      // The fields this table's rows name others by, each once: the entries
      // following the first for a field are the other tables it may name.
      std::vector<const MeridL3Tunnel::RowReference*> fields;
      for (const auto& ref : rowReferences)
         if (ref.table == name && ref.alternative == 0) fields.push_back(&ref);
      for (Asic::Index i = 0; i < t->numEntries(); ++i) {
         const std::string* row = t->row(i);
         if (!row) continue;
         for (const auto* ref : fields) {
            const auto text = ref->read(*row);
            if (!text) continue;
            const std::string field = "'" + std::string(ref->field) + "'";
            const auto index = Asic::fieldIndex(*text);
            if (!index) fail(i, field + " holds " + printableText(*text) + ", not an index");
            // The invalid index is how a row says it names nothing yet.
            if (!Asic::isValidIndex(*index)) continue;
            std::string outside;
            bool inside = false;
            for (auto alt = ref; alt != MeridL3Tunnel::alternativesEnd(ref); ++alt) {
               const uint32_t n = rows(alt->named);
               inside = inside || *index < n;
               outside += (outside.empty() ? "" : " and ") + rowsText(alt->named, n);
            }
            if (!inside)
               fail(i, field + " names " + std::to_string(*index) + ", outside " + outside);
         }
         if (name != MeridL3Tunnel::L3EcmpMember0Table::typeName) continue;
         const auto* key = t->rowKey(i).as<MeridL3Tunnel::L3EcmpMember0Table::RowKey>();
         if (!key) continue;
         const uint64_t end = uint64_t(key->base) + key->size;
         const std::string keyText = "its key " + t->rowKey(i).text();
         if (key->index != i || key->base > i || end <= i) fail(i, keyText + " is not of this row");
         if (end > t->numEntries())
            fail(i, keyText + " names rows " + std::to_string(key->base) + " to " +
                        std::to_string(end - 1) + ", outside " + rowsText(name, t->numEntries()));
      }
   }
}

}  // namespace L3TunnelTool
