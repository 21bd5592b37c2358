// Text from outside as a tree: a description's file, or an entry that a client sent.
//
// A text of a few lines can stand for a tree without end (an alias inside its own anchor), for more nodes than there is
// memory (aliases of aliases), or for one as deep as the stack. So the text is measured first, as events, and becomes a
// tree only within bounds.
#pragma once

#include <cstddef>
#include <string>
#include <yaml-cpp/yaml.h>

namespace Host {

struct DocumentBounds {
   size_t bytes;
   size_t nodes; // with each alias counted as what it stands for
   size_t depth = 32;
};

constexpr DocumentBounds descriptionBounds{ size_t( 256 ) << 20, size_t( 1 ) << 25 };
constexpr DocumentBounds entryBounds{ size_t( 1 ) << 20, size_t( 1 ) << 17 };

// Throws an EntryError with the line for a text that is no YAML or beyond the bounds.
YAML::Node parseDocument( const std::string & text, const DocumentBounds & bounds );

} // namespace Host
