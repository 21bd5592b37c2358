// What somebody may have meant by a word that is not known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Runtime {

// The word of these that is least letters away (Damerau's distance, a swap of neighbours is one): at most a third of
// the given one's length, and one at least. Empty: none is that near.
std::string nearestWord( std::string_view given, const std::vector< std::string > & words );

// ", did you mean "neighbor"?", or nothing.
std::string didYouMean( std::string_view given, const std::vector< std::string > & words );

} // namespace Runtime
