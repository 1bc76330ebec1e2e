#pragma once
// The loader of a table's hardware plug-in: a process-wide singleton that
// finds the `Util` registered under "AsicFeature" and the table's type name.
#include <string>
#include <string_view>

#include "Asic/SwTableUtil.h"
#include "Sidecar/Loader.h"

namespace Asic {

template <class Table>
class SwTableUtilLoader : public Sidecar::Core::Loader::Singleton {
public:
   SwTableUtilLoader() : name_(std::string(Table::typeName) + "::UtilLoader") {}

   static SwTableUtilLoader& instance() { return instantiate<SwTableUtilLoader>(); }

   std::string_view prefixPath() const override { return "AsicFeature"; }
   std::string_view suffixPath() const override { return Table::typeName; }
   std::string_view name() const override { return name_; }

   Brio::Ptr<SwTable::Util> util() const {
      Brio::Ptr<Brio::PtrInterface> p = load();
      return Brio::Ptr<SwTable::Util>(dynamic_cast<SwTable::Util*>(p.ptr()));
   }

private:
   std::string name_;
};

}  // namespace Asic
