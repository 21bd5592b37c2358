// The commands that change what the router is told: from words to an entry of the description.
#pragma once

#include "CtlClient.h"

#include <string>
#include <vector>

namespace Ctl {

// One kind of object, by its words: what identifies it first, then keywords with values.
struct Kind {
   std::string name; // "route"
   std::string help;
   std::string words; // for people
   // The entry that the words after "add" and "replace" say, and after "del". Throws Error of usage.
   Json ( *entryOf )( const std::vector< std::string > & words );
   Json ( *keyOf )( const std::vector< std::string > & words );
};

const std::vector< Kind > & kinds();

} // namespace Ctl
