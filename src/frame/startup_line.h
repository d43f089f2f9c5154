// The start-up line: the module's description and version words at level 1.
#pragma once

namespace pelarix {

// Reads the module's version block and writes the line.
void WriteStartupLine();

// Writes the line from a version block fetched before; a null block gives the
// fixed words for everything.
void WriteStartupLineFromBlock(const void *block);

}  // namespace pelarix
