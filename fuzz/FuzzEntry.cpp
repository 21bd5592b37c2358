// Entries of changes: the first byte is the kind, the second the operation, and the others are the entry's text.
#include "FuzzRouter.h"
#include "HostDaemon.h"

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   if ( size < 2 ) return 0;
   const auto & sections = Host::sections();
   const std::string kind = sections[ data[ 0 ] % sections.size() ]->kind();
   const std::string text( reinterpret_cast< const char * >( data + 2 ), size - 2 );
   Fuzz::Router router;
   // What was made is replaced by itself, and taken away.
   applyChange( router.state, Host::ChangeOp( data[ 1 ] % 3 ), kind, text );
   applyChange( router.state, Host::ChangeOp::replace, kind, text );
   applyChange( router.state, Host::ChangeOp::del, kind, text );
   return 0;
}
