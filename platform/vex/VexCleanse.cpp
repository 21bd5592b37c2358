#include "VexCleanse.h"

#include "GantCleanse.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/message.h>
#include <vector>

namespace Vex {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

// `index` is -1 for a field that is not repeated.
void cleanseField( const Message & message, const FieldDescriptor & field, int index ) {
   const auto & reflection = *message.GetReflection();
   if ( field.type() == FieldDescriptor::TYPE_MESSAGE ) {
      cleanse( index < 0 ? reflection.GetMessage( message, &field )
                         : reflection.GetRepeatedMessage( message, &field, index ) );
      return;
   }
   std::string scratch;
   const auto & bytes = index < 0 ? reflection.GetStringReference( message, &field, &scratch )
                                  : reflection.GetRepeatedStringReference( message, &field, index, &scratch );
   // In place: a setter would leave the old bytes to the allocator.
   Gant::cleanse( const_cast< char * >( bytes.data() ), bytes.size() );
}

} // namespace

void cleanse( const Message & message ) {
   std::vector< const FieldDescriptor * > fields;
   message.GetReflection()->ListFields( message, &fields );
   for ( const auto * field : fields ) {
      if ( field->type() != FieldDescriptor::TYPE_BYTES && field->type() != FieldDescriptor::TYPE_MESSAGE ) continue;
      if ( !field->is_repeated() ) {
         cleanseField( message, *field, -1 );
         continue;
      }
      const int size = message.GetReflection()->FieldSize( message, field );
      for ( int i = 0; i < size; ++i ) cleanseField( message, *field, i );
   }
}

} // namespace Vex
