#pragma once
// What a suite run over every keyed and index-keyed table needs to know of
// each: how to make it on the fixture's chip (with what the entries it names
// live in), its keys, the entry of a key, and the first index it hands out.
// An entry naming another table's entry names one committed and programmed
// in that table under the same key number.
#include "support/SimFixture.h"

namespace test {

template <class T>
struct TableTraits;

// The programmed tunnel of key `n`, and the programmed tunnel interface
// naming it, in the fixture's tables.
inline HandlePtr namedTunnel(SimFixture& f, uint32_t n) {
   HandlePtr h = f.v4->entryCommit(tunnelKey(n), tunnelEntry<V4>(tunnelKey(n)));
   f.runLoop();
   return h;
}
inline HandlePtr namedInterface(SimFixture& f, uint32_t n) {
   HandlePtr h = f.oif->entryCommit(tunnelKey(n), oifEntry(namedTunnel(f, n)));
   f.runLoop();
   return h;
}

// The two tunnel tables share one index space, sized by the last to start:
// both are made with the rows asked for. Index 0 is never handed out.
template <class T, bool V6>
struct TunnelTraits {
   static constexpr Asic::Index firstIndex = 1;
   static void make(SimFixture& f, uint32_t rows) {
      f.chip->tableSizeIs(V4::typeName, rows);
      f.chip->tableSizeIs(V6::typeName, rows);
      f.makeTunnelTables(rows);
   }
   static T& of(SimFixture& f) {
      if constexpr (V6)
         return *f.v6;
      else
         return *f.v4;
   }
   static typename T::Key key(uint32_t n) { return tunnelKey(n, V6); }
   static typename T::Entry entry(SimFixture&, uint32_t n) { return tunnelEntry<T>(key(n)); }
};

template <>
struct TableTraits<V4> : TunnelTraits<V4, false> {};
template <>
struct TableTraits<V6> : TunnelTraits<V6, true> {};

template <>
struct TableTraits<Oif> {
   static constexpr Asic::Index firstIndex = 0;
   static void make(SimFixture& f, uint32_t rows) {
      f.makeTunnelTables();
      f.chip->tableSizeIs(Oif::typeName, rows);
      f.make(f.oif, MeridL3Tunnel::l3TunnelEgrL3Oif1TableFactory, rows);
   }
   static Oif& of(SimFixture& f) { return *f.oif; }
   static L3TunnelKey key(uint32_t n) { return tunnelKey(n); }
   static Oif::Entry entry(SimFixture& f, uint32_t n) { return oifEntry(namedTunnel(f, n)); }
};

template <>
struct TableTraits<Nh> {
   static constexpr Asic::Index firstIndex = 0;
   static void make(SimFixture& f, uint32_t rows) {
      TableTraits<Oif>::make(f, SimFixture::defaultRows);
      f.chip->tableSizeIs(Nh::typeName, rows);
      f.make(f.nh, MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory, rows);
   }
   static Nh& of(SimFixture& f) { return *f.nh; }
   static L3TunnelKey key(uint32_t n) { return tunnelKey(n); }
   static Nh::Entry entry(SimFixture& f, uint32_t n) { return nextHopEntry(namedInterface(f, n)); }
};

// The merged interface table's members, used on their own: the key is the
// row.
template <>
struct TableTraits<IngL3Iif> {
   static constexpr Asic::Index firstIndex = 0;
   static void make(SimFixture& f, uint32_t rows) {
      f.chip->tableSizeIs(IngL3Iif::typeName, rows);
      f.make(f.ing, MeridL3Tunnel::ingL3IifFactory, rows);
   }
   static IngL3Iif& of(SimFixture& f) { return *f.ing; }
   static IngL3Iif::Key key(uint32_t n) { return IngL3Iif::Index(n); }
   static IngL3Iif::Entry entry(SimFixture&, uint32_t) { return {}; }
};

template <>
struct TableTraits<EgrL3Oif1Table> {
   static constexpr Asic::Index firstIndex = 0;
   static void make(SimFixture& f, uint32_t rows) {
      f.makeTunnelTables();
      f.chip->tableSizeIs(EgrL3Oif1Table::typeName, rows);
      f.make(f.egr, MeridL3Tunnel::egrL3Oif1TableFactory, rows);
   }
   static EgrL3Oif1Table& of(SimFixture& f) { return *f.egr; }
   static EgrL3Oif1Table::Key key(uint32_t n) { return EgrL3Oif1Table::Index(n); }
   static EgrL3Oif1Table::Entry entry(SimFixture& f, uint32_t n) {
      return {namedTunnel(f, n), 0, 0, U5(18)};
   }
};

}  // namespace test
