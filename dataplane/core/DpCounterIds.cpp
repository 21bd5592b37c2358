#include "DpCounterIds.h"

#include "DpCounterTable.h"

#include <google/protobuf/descriptor.h>

#include <cerrno>

namespace Vexdp {

Outcome CounterIds::set( const google::protobuf::Message & arg ) {
   const auto & reflection = *arg.GetReflection();
   std::vector< const google::protobuf::FieldDescriptor * > fields;
   reflection.ListFields( arg, &fields );
   for ( const auto * field : fields ) {
      if ( std::size_t( field->number() ) >= ids_.size() )
         return refuse( EINVAL, "{} is a counter that no module has a place for", field->name() );
      const CounterId id = reflection.GetUInt32( arg, field );
      if ( id != kNoCounter && id >= CounterTable::slots() )
         return refuse( ERANGE, "{} {} is out of range, the table has {} counters", field->name(), id,
                        CounterTable::slots() );
   }
   for ( const auto * field : fields ) ids_[ std::size_t( field->number() ) ] = reflection.GetUInt32( arg, field );
   // A new message: a command source may still be telling the old one.
   std::shared_ptr< google::protobuf::Message > set( arg.New() );
   if ( set_ ) set->CopyFrom( *set_ );
   set->MergeFrom( arg );
   set_ = std::move( set );
   return {};
}

CommandSource CounterIds::command() const {
   return [ set = set_ ]( CommandSink & sink ) {
      if ( set ) sink.command( "setCounterIds", *set );
   };
}

} // namespace Vexdp
