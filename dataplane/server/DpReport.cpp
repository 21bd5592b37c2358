#include "DpReport.h"

#include "google/rpc/error_details.pb.h"

#include <spdlog/spdlog.h>

#include <cerrno>
#include <cstring>

namespace Vexdp {

namespace {

// Values of google.rpc.Code.
enum Code {
   unknown = 2,
   invalidArgument = 3,
   notFound = 5,
   alreadyExists = 6,
   resourceExhausted = 8,
   failedPrecondition = 9,
   outOfRange = 11,
   unimplemented = 12,
};

Code codeOf( int errnoCode ) {
   switch ( errnoCode ) {
   case EINVAL: return invalidArgument;
   case ENOENT: return notFound;
   case EEXIST: return alreadyExists;
   case ENOSPC: return resourceExhausted;
   case EBUSY:
   case ENODEV:
   case ENOTCONN: return failedPrecondition;
   case ERANGE: return outOfRange;
   case EOPNOTSUPP: return unimplemented;
   default: return unknown;
   }
}

// Requests may hold names of any length. The beginning, of whole characters.
constexpr std::size_t kNameTold = 256, kTextTold = 1024;

std::string_view clipped( std::string_view text, std::size_t most ) {
   if ( text.size() <= most ) return text;
   while ( most > 0 && ( static_cast< unsigned char >( text[ most ] ) & 0xc0 ) == 0x80 ) --most;
   return text.substr( 0, most );
}

std::string errnoName( int code ) {
   const char * name = strerrorname_np( code );
   return name == nullptr ? fmt::format( "{}", code ) : name;
}

} // namespace

std::string textOf( const Subject & subject, const Refusal & refusal ) {
   std::string text;
   for ( const auto part : { clipped( subject.module, kNameTold ), clipped( subject.action, kNameTold ) } )
      if ( !part.empty() ) text.append( part ).append( ": " );
   return text += clipped( refusal.reason, kTextTold );
}

void report( const Subject & subject, const Refusal & refusal, bess::pb::Error & error ) {
   error.set_code( refusal.code );
   error.set_errmsg( textOf( subject, refusal ) );
   spdlog::debug( "refused {}", error.errmsg() );
}

void report( const Subject & subject, const Refusal & refusal, Telling telling, vex::pb::Refusal & reply ) {
   if ( telling == Telling::code ) {
      reply.mutable_error()->set_code( refusal.code );
      return;
   }
   report( subject, refusal, *reply.mutable_error() );
   if ( telling == Telling::text ) return;
   auto & status = *reply.mutable_status();
   status.set_code( codeOf( refusal.code ) );
   status.set_message( reply.error().errmsg() );

   google::rpc::ErrorInfo cause;
   cause.set_reason( errnoName( refusal.code ) );
   cause.set_domain( "vexdp" );
   ( *cause.mutable_metadata() )[ "module" ] = std::string( clipped( subject.module, kNameTold ) );
   ( *cause.mutable_metadata() )[ "action" ] = std::string( clipped( subject.action, kNameTold ) );
   status.add_details()->PackFrom( cause );

   google::rpc::ResourceInfo object;
   object.set_resource_type( subject.mclass.empty() ? "module" : std::string( subject.mclass ) );
   object.set_resource_name( std::string( clipped( subject.module, kNameTold ) ) );
   object.set_description( std::string( clipped( refusal.reason, kTextTold ) ) );
   status.add_details()->PackFrom( object );
}

} // namespace Vexdp
