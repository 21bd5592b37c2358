#include "ZephProcSys.h"

#include "GantTrace.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Zeph {

static Gant::TraceHandle traceHandle( "ZephProcSys" );

bool writeProcSys( const Gant::String & path, const Gant::String & value ) {
   const int fd = ::open( path.c_str(), O_WRONLY | O_CLOEXEC );
   const bool written = fd >= 0 && ::write( fd, value.data(), value.size() ) == static_cast< ssize_t >( value.size() );
   if ( !written ) GANT_TRACE( 0, "writeProcSys ", path, " = ", value, ": ", std::strerror( errno ) );
   if ( fd >= 0 ) ::close( fd );
   return written;
}

} // namespace Zeph
