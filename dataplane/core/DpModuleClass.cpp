#include "DpModuleClass.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>

namespace Vexdp {

const Command * ModuleClass::command( std::string_view name ) const {
   const auto at = std::ranges::find( commands, name, &Command::name );
   return at == commands.end() ? nullptr : &*at;
}

const std::string & typeName( const google::protobuf::Message & message ) {
   return message.GetDescriptor()->full_name();
}

std::string_view typeName( const google::protobuf::Any & any ) {
   const std::string_view url = any.type_url();
   return url.substr( url.rfind( '/' ) + 1 );
}

} // namespace Vexdp
