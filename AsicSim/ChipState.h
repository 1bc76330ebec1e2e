#pragma once
// The simulated chip's state file: the rows and row keys of every hardware
// table, kept across processes.
//
//   l3tunnel-chip-state <version>
//   table <unit> <rows> <name>
//   row <index> <text> <key type> <key text>
//   end <checksum>
//
// Strings are written as <length>:<bytes>; the checksum (FNV-1a, 64 bits,
// hex) covers every byte before the "end" line.
#include <string>

#include "AsicSim/Chip.h"

namespace AsicSim {

// Writes a new file and renames it over the old one, so a crash leaves
// either; a symbolic link stays and its target is replaced. Throws
// std::runtime_error naming the path and the reason.
void chipStateSave(const std::string& path, const HwTables& tables);

// The tables of the file, read only when the whole file is sound; else throws
// std::runtime_error naming the path, the fault and its line.
HwTables chipStateLoad(const std::string& path);

}  // namespace AsicSim
