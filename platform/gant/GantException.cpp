#include "GantException.h"

namespace Gant {

void throwRangeException( const String & text ) { throw RangeException( text ); }
void throwNameInUseException( const String & text ) { throw NameInUseException( text ); }

void throwReinstantiated( const char * attribute, const String & newValue, const String & oldValue ) {
   throwNameInUseException( String( "Reinstantiating the pointer interface where constructor parameter attribute " ) +
                            attribute + " has a different value of " + newValue + " than the current value of " +
                            oldValue + " not allowed" );
}

} // namespace Gant
