#include "HostChangeCommands.h"

namespace Host {

namespace {

ErrorCode errorCodeOf( ChangeResult::Code code ) {
   switch ( code ) {
   case ChangeResult::Code::invalid: return ErrorCode::usage;
   case ChangeResult::Code::notFound: return ErrorCode::notFound;
   default: return ErrorCode::refused;
   }
}

std::unique_ptr< Answer > done( const ChangeResult & result ) {
   if ( result.code != ChangeResult::Code::done ) throw CommandError( errorCodeOf( result.code ), result.message );
   return atOnce( [ message = result.message ]( Output & out ) {
      if ( !message.empty() ) out.endMember( "message", message );
   } );
}

Command change( const char * name, ChangeOp op ) {
   return { name,
            { { "kind", Parameter::Kind::text, true }, { "entry", Parameter::Kind::text, true } },
            [ op ]( const Asked & asked ) {
               return done( asked.daemon.change( op, asked.question.text( "kind" ), asked.question.text( "entry" ) ) );
            } };
}

} // namespace

Commands changeCommands() {
   return { change( "add", ChangeOp::add ),
            change( "replace", ChangeOp::replace ),
            change( "del", ChangeOp::del ),
            { "reload", {}, []( const Asked & asked ) { return done( asked.daemon.reload() ); } } };
}

} // namespace Host
