// The inspection as the page calls it: one container for each instance of the module, and results as bytes in the
// module's memory. A call leaves its result where Result says; it lies there until the next call. All results but
// those of Blocks and Patches are JSON; the tables of page/module.ts say what is in them.
//
// An instance that traps (no memory, no stack) is lost, and the page makes another.
#pragma once

#include <cstdint>

#define ORBA_EXPORT(name) extern "C" __attribute__((export_name(name)))

namespace orba::explorer {

// Begins with a container of `size` bytes, which HostRead reads. Comes before all others. No result.
ORBA_EXPORT("open") void Open(double size);

// What `orba check --json` tells.
ORBA_EXPORT("check") void Check();

// The entries of directory `node`; 0 is the root, wherever it is.
ORBA_EXPORT("list") void List(std::uint32_t node);

// Everything below directory `node`, 0 for the root, as a row of steps: into a directory, out of it, a file.
ORBA_EXPORT("walk") void Walk(std::uint32_t node);

// Where in the container the contents of file `node` lie, as far as they can be read.
ORBA_EXPORT("contents") void Contents(std::uint32_t node);

// For each block from 1 on its owner (u16, 0 = none), then for each its use (u8: a BlockUse, and 0x80 where it has more
// than one owner). Stands on the last Check.
ORBA_EXPORT("blocks") void Blocks();

// Who refers to block `number`. Stands on the last Check.
ORBA_EXPORT("block") void Block(std::uint32_t number);

// The repair that `orba repair` would make at this time, UTC.
ORBA_EXPORT("plan")
void Plan(std::uint32_t year, std::uint32_t month, std::uint32_t day, std::uint32_t hour, std::uint32_t minute,
          std::uint32_t second);

// The bytes of the plan's patches, one behind the other. Stands on the last Plan.
ORBA_EXPORT("patches") void Patches();

// What `orba recover` copies, through HostDirectory and its like.
ORBA_EXPORT("recover") void Recover();

// Where the last call's result lies, and how long it is.
ORBA_EXPORT("result") const char* Result();
ORBA_EXPORT("resultSize") std::uint32_t ResultSize();

}  // namespace orba::explorer
