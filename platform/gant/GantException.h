// The two kinds of exception of the object model. No logic catches them: they tell the caller of a setter that the
// value is not a value of the attribute.
#pragma once

#include "GantTypes.h"

#include <stdexcept>

namespace Gant {

class RangeException : public std::range_error {
 public:
   using std::range_error::range_error;
};

class NameInUseException : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

// A text that is not the text form of the value asked for.
class ParseException : public std::runtime_error {
 public:
   using std::runtime_error::runtime_error;
};

[[noreturn]] void throwRangeException( const String & text );
[[noreturn]] void throwNameInUseException( const String & text );

// "Reinstantiating the pointer interface where constructor parameter attribute _name has a different value of ..."
[[noreturn]] void throwReinstantiated( const char * attribute, const String & newValue, const String & oldValue );

} // namespace Gant
