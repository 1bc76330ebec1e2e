#include "Sidecar/Loader.h"

#include <map>
#include <utility>

namespace Sidecar::Core {

namespace {

struct Registry {
   std::map<std::pair<std::string, std::string>, Loader::Factory, std::less<>> exact;
   std::map<std::string, Loader::Factory, std::less<>> defaults;
   std::map<std::string, Loader::Singleton*, std::less<>> singletons;
};

Registry& registry() {
   static Registry r;
   return r;
}

}  // namespace

void Loader::implementationIs(std::string_view prefix, std::string_view suffix, Factory f) {
   registry().exact.insert_or_assign({std::string(prefix), std::string(suffix)}, std::move(f));
}

void Loader::implementationDel(std::string_view prefix, std::string_view suffix) {
   registry().exact.erase({std::string(prefix), std::string(suffix)});
}

void Loader::defaultImplementationIs(std::string_view prefix, Factory f) {
   registry().defaults.insert_or_assign(std::string(prefix), std::move(f));
}

void Loader::defaultImplementationDel(std::string_view prefix) {
   auto& d = registry().defaults;
   if (auto it = d.find(prefix); it != d.end()) d.erase(it);
}

Brio::Ptr<Brio::PtrInterface> Loader::instance(std::string_view prefix, std::string_view suffix) {
   auto& r = registry();
   if (auto it = r.exact.find(std::pair{std::string(prefix), std::string(suffix)});
       it != r.exact.end() && it->second)
      return it->second(suffix);
   if (auto it = r.defaults.find(prefix); it != r.defaults.end() && it->second)
      return it->second(suffix);
   return nullptr;
}

const Loader::Singleton* Loader::Singleton::singleton(std::string_view name) {
   auto& s = registry().singletons;
   auto it = s.find(name);
   return it == s.end() ? nullptr : it->second;
}

void Loader::Singleton::registerSingleton(Singleton* s) {
   registry().singletons.insert_or_assign(std::string(s->name()), s);
}

}  // namespace Sidecar::Core
