// Memory that there is none of, or too much.
#pragma once

#include <cstddef>

namespace Runtime {

// An allocation that fails ends the process with one line on its error stream and exit code 1. `program` stays.
void endWithoutMemory( const char * program );

// Bytes of this process that are in memory; 0 where the kernel does not say.
std::size_t resident();

// Gives memory back that the allocator keeps for later. Called every half a minute or so, in a quiet moment: it looks
// first whether that has become much since it did so last.
class Trimmer {
 public:
   void look();

 private:
   std::size_t keptBefore_ = 0; // bytes
};

} // namespace Runtime
