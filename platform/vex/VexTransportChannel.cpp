#include "VexTransportChannel.h"

#include <grpcpp/create_channel.h>
#include <grpcpp/security/credentials.h>

namespace Vex {

std::shared_ptr< grpc::Channel > transportChannel( const Gant::String & address ) {
   grpc::ChannelArguments arguments;
   arguments.SetMaxReceiveMessageSize( -1 );
   arguments.SetMaxSendMessageSize( -1 );
   // A new session must not inherit the connection, or the back-off, of the one that was lost.
   arguments.SetInt( GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1 );
   arguments.SetInt( GRPC_ARG_ENABLE_HTTP_PROXY, 0 );
   return grpc::CreateCustomChannel( address, grpc::InsecureChannelCredentials(), arguments );
}

} // namespace Vex
