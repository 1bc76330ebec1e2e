// The chip's rows kept across processes: what is saved reads back whole, and
// a damaged or foreign file is refused without touching the chip.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "AsicSim/Chip.h"
#include "MeridL3Tunnel/L3TunnelKey.h"
#include "SharedL3/L3EcmpMember0Table.h"
#include "support/Installed.h"
#include "support/Refusal.h"

namespace test {
namespace {

using MeridL3Tunnel::L3TunnelKey;

// A state file of `body` (the lines after the first) with its checksum.
std::string sealed(const std::string& body) {
   std::string text = "l3tunnel-chip-state 1\n" + body;
   uint64_t h = 0xcbf29ce484222325ull;
   for (unsigned char c : text) h = (h ^ c) * 0x100000001b3ull;
   char sum[32];
   std::snprintf(sum, sizeof sum, "%016llx", static_cast<unsigned long long>(h));
   return text + "end " + sum + "\n";
}

class ChipState : public ::testing::Test {
protected:
   void SetUp() override {
      ASSERT_FALSE(dir.empty());
      path = (dir / "chip.state").string();
      chip = Brio::makePtr<AsicSim::Chip>();
      auto tunnels = chip->tableIs("MeridL3Tunnel::L3EgrL3Ipv4TunnelTable", 511, 8);
      tunnels->rowTextIs(1, "Value('x', ** {'ttl': 64})");
      tunnels->rowKeyIs(1, Orb::GenericValue::of(L3TunnelKey(Wire::IpGenAddr("10.0.0.1"),
                                                             Wire::IpGenAddr("2001:db8::2"))));
      auto members = chip->tableIs("MeridL3Tunnel::L3EcmpMember0Table", 511, 4);
      members->rowTextIs(3, "row with blanks, 'quotes' and 12:colons");
      members->rowKeyIs(3,
                        Orb::GenericValue::of(MeridL3Tunnel::L3EcmpMember0Table::RowKey(3, 2, 2)));
      members->rowTextIs(0, "a row without a key");
   }

   static std::string dump(const AsicSim::Chip& c) {
      std::ostringstream os;
      for (auto& name : c.tableNames()) {
         auto t = c.table(name, 511);
         os << name << " " << t->numEntries() << "\n";
         for (Asic::Index i = 0; i < t->numEntries(); ++i)
            if (t->row(i))
               os << i << " " << *t->row(i) << " | " << t->rowKey(i).text() << " "
                  << (t->rowKey(i) ? t->rowKey(i).type().name() : "") << "\n";
      }
      return os.str();
   }
   void fileIs(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }

   ScratchDir scratch{"chip-state"};
   const std::filesystem::path& dir = scratch.path;
   std::string path;
   Brio::Ptr<AsicSim::Chip> chip;
};

// Every refusal is one line naming the file and the line the fault is on,
// also when the fault is in the end line, or when a string before it holds
// line ends of its own; the chip loading it keeps what it had.
TEST_F(ChipState, RefusalsAreOneLineAndNameTheFaultsLine) {
   const std::string key = "26:MeridL3Tunnel::L3TunnelKey";
   const std::string table = "table 511 4 1:T\n";
   const std::string good = sealed(table + "row 1 1:x 0: 0:\n");
   std::string badSum = good;
   badSum[badSum.size() - 2] = badSum[badSum.size() - 2] == '0' ? '1' : '0';
   struct Case {
      const char* name;
      std::string text;
      const char* message;
      uint32_t line;
   };
   std::string flipped = good;
   flipped[flipped.size() / 2] ^= 0x20;
   const Case cases[] = {
       {"empty", "", "not a chip state file", 1},
       {"foreign", "hello\nworld\n", "not a chip state file", 1},
       {"cut short", good.substr(0, good.size() / 2), "the file is cut short", 2},
       {"flipped byte", flipped, "checksum mismatch", 3},
       {"version", "l3tunnel-chip-state 9\n", "state file version 9", 1},
       {"no end line", "l3tunnel-chip-state 1\ntable 511 4 1:T\n", "no end line", 2},
       {"checksum", badSum, "checksum mismatch", 4},
       {"end line without its line end", good.substr(0, good.size() - 1),
        "the end line has no line end", 4},
       {"text after the end line", good + "more\n", "text after the end line", 5},
       {"row before any table", sealed("row 1 1:x 0: 0:\n"), "a row before any table", 2},
       {"unknown record", sealed(table + "rows 1\n"), "unknown record 'rows'", 3},
       {"row outside", sealed(table + "row 4 1:x 0: 0:\n"), "row 4 is outside its table", 3},
       {"line ends inside a row text", sealed(table + "row 1 3:a\nb 0: 0:\nbogus 1\n"),
        "unknown record 'bogus'", 5},
       {"string past the end line", sealed(table + "row 1 99:x 0: 0:\n"),
        "the row text runs past the end line", 3},
       {"missing line end, echoed", sealed(table + "table 511 4 1:U extra\n"), "expected \"\\n\"",
        3},
       {"missing blank at a line end", sealed(table + "row\nrow 1 1:x 0: 0:\n"), "expected \" \"",
        3},
       {"row text not UTF-8", sealed(table + "row 2 3:a\xff\x62 0: 0:\n"),
        "the row text is not UTF-8 (byte 0xff at 1)", 3},
       {"overlong form", sealed(table + "row 2 2:\xc0\xaf 0: 0:\n"),
        "the row text is not UTF-8 (byte 0xc0 at 0)", 3},
       {"key text not UTF-8", sealed(table + "row 2 1:x " + key + " 2:\xe2\x28\n"),
        "the key text is not UTF-8", 3},
       {"table name not UTF-8", sealed("table 511 4 1:\x80\n"), "the table name is not UTF-8", 2},
       // Each table within the bound, but not all of them together: refused
       // before anything is allocated.
       {"rows in all", sealed("table 511 1 1:a\ntable 511 16777216 1:b\n"),
        "tables of more than 16777216 rows in all", 3},
       {"bad key text with a line end", sealed(table + "row 2 1:x " + key + " 3:a\nb\n"),
        "row key: ", 3},
   };
   auto other = Brio::makePtr<AsicSim::Chip>();
   other->tableIs("kept", 511, 2);
   for (const Case& c : cases) {
      fileIs(c.text);
      const std::string what = refusal<std::runtime_error>([&] { other->stateLoad(path); });
      EXPECT_EQ(other->tableNames(), std::vector<std::string>{"kept"}) << c.name;
      EXPECT_TRUE(startsWith(what, path + ": ")) << c.name << ": " << what;
      EXPECT_NE(what.find(c.message), std::string::npos) << c.name << ": " << what;
      EXPECT_EQ(what.find('\n'), std::string::npos) << c.name << ": " << what;
      const std::string line = " (line " + std::to_string(c.line) + ")";
      EXPECT_TRUE(what.ends_with(line)) << c.name << ": " << what;
   }
   // UTF-8 beyond ASCII is a row's own business.
   fileIs(sealed(table + "row 2 5:caf\xc3\xa9 0: 0:\n"));
   auto chip = Brio::makePtr<AsicSim::Chip>();
   chip->stateLoad(path);
   EXPECT_EQ(chip->table("T", 511)->rowText(2), "caf\xc3\xa9");
}

// A file that cannot be read says why.
TEST_F(ChipState, UnreadableFilesSayWhy) {
   const std::string missing = (dir / "missing").string();
   const std::string dangling = (dir / "dangling").string();
   const std::string loop = (dir / "loop").string();
   std::filesystem::create_symlink("nowhere", dangling);
   std::filesystem::create_symlink("loop", loop);
   std::vector<std::pair<std::string, const char*>> cases = {
       {missing, "No such file or directory"},
       {dangling, "No such file or directory"},
       {loop, "Too many levels of symbolic links"},
       {dir.string(), "Is a directory"}};
   if (::geteuid() != 0) {
      chip->stateSave(path);
      std::filesystem::permissions(path, std::filesystem::perms::none);
      cases.push_back({path, "Permission denied"});
   }
   for (const auto& [file, reason] : cases) {
      const std::string what =
          refusal<std::runtime_error>([&] { Brio::makePtr<AsicSim::Chip>()->stateLoad(file); });
      EXPECT_EQ(what, file + ": cannot open the state file: " + reason);
   }
}

// Saving through a symbolic link replaces the file it names, in that file's
// directory, and keeps the link; a dangling link gets its file made.
TEST_F(ChipState, SavingThroughALinkReplacesItsTarget) {
   const auto elsewhere = dir / "elsewhere";
   std::filesystem::create_directories(elsewhere);
   const auto target = elsewhere / "real.state";
   std::filesystem::create_symlink("elsewhere/real.state", path);  // dangling at first
   const auto hop = dir / "hop";
   std::filesystem::create_symlink("chip.state", hop);  // a link to the link
   for (int save = 0; save < 2; ++save) {
      if (save) chip->table("MeridL3Tunnel::L3EcmpMember0Table", 511)->rowTextIs(2, "again");
      chip->stateSave(hop.string());
      EXPECT_TRUE(std::filesystem::is_symlink(path));
      EXPECT_TRUE(std::filesystem::is_symlink(hop));
      ASSERT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(target)));
      auto other = Brio::makePtr<AsicSim::Chip>();
      other->stateLoad(target.string());
      EXPECT_EQ(dump(*other), dump(*chip)) << "rows and their keys read back whole";
      EXPECT_EQ(other->table("MeridL3Tunnel::L3EcmpMember0Table", 511)->stats().writes, 0u);
   }
   // No temporary file left in either directory.
   EXPECT_EQ(std::distance(std::filesystem::directory_iterator(elsewhere), {}), 1);
   EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 3);
   // A loop of links is refused with the reason.
   const auto loop = dir / "loop";
   std::filesystem::create_symlink("loop", loop);
   EXPECT_EQ(refusal<std::runtime_error>([&] { chip->stateSave(loop.string()); }),
             loop.string() + ": cannot replace the state file: Too many levels of symbolic links");
}

}  // namespace
}  // namespace test
