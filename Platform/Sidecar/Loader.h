#pragma once
// The plug-in loader. Implementations register under a prefix path and a
// suffix path (the qualified type name of what they serve); a prefix may also
// have a default implementation that serves every suffix under it. Loaders are
// process-wide singletons, one per kind of plug-in, that find the
// implementation for their own paths.
#include <functional>
#include <string>
#include <string_view>

#include "Brio/Ptr.h"
#include "Orb/EntityPb.h"

#pragma GCC visibility push(default)
namespace Sidecar::Core {

class Loader {
public:
   using Factory = std::function<Brio::Ptr<Brio::PtrInterface>(std::string_view suffixPath)>;

   static void implementationIs(std::string_view prefixPath, std::string_view suffixPath,
                                Factory f);
   static void implementationDel(std::string_view prefixPath, std::string_view suffixPath);
   static void defaultImplementationIs(std::string_view prefixPath, Factory f);
   static void defaultImplementationDel(std::string_view prefixPath);
   // A new object from the implementation registered for the paths (the exact
   // one first, else the prefix's default); null when none is registered.
   static Brio::Ptr<Brio::PtrInterface> instance(std::string_view prefixPath,
                                                 std::string_view suffixPath);

   class Singleton;
};

class Loader::Singleton : public Orb::EntityPb {
public:
   virtual ~Singleton() = default;
   virtual std::string_view prefixPath() const = 0;
   virtual std::string_view suffixPath() const = 0;
   // The singleton's own name, e.g. "MeridL3Tunnel::IngL3Iif::UtilLoader".
   virtual std::string_view name() const = 0;

   Brio::Ptr<Brio::PtrInterface> load() const {
      return Loader::instance(prefixPath(), suffixPath());
   }

   // Creates the process-wide instance of L on first use and registers it by name.
   template <class L>
   static L& instantiate() {
      static L* instance = [] {
         auto* l = new L;
         registerSingleton(l);
         return l;
      }();
      return *instance;
   }
   static const Singleton* singleton(std::string_view name);

private:
   static void registerSingleton(Singleton* s);
};

}  // namespace Sidecar::Core
#pragma GCC visibility pop
