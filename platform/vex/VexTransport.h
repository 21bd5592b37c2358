// How batches travel. For the channel's sources only.
#pragma once

#include "VexPeer.h"

#include <grpcpp/support/byte_buffer.h>
#include <memory>

namespace grpc {
class Channel;
}
namespace google::protobuf {
class Message;
}
namespace vex::pb {
class BatchReply;
}

namespace Vex {

// What a transport tells, from a thread of its own.
class TransportSink {
 public:
   virtual ~TransportSink() = default;
   // In the order of the batches; number 0 begins the session.
   virtual void reply( std::unique_ptr< vex::pb::BatchReply > reply ) = 0;
   // Some of what a batch asks for has been answered.
   virtual void progress() = 0;
   // Once; nothing comes after it.
   virtual void end( const Gant::String & reason, bool unimplemented ) = 0;
};

// send() takes a batch in wire form and does not wait. The destructor ends everything, and no call comes after it.
class Transport {
 public:
   virtual ~Transport() = default;
   virtual void send( const grpc::ByteBuffer & batch ) = 0;
   virtual bool streaming() const = 0;
   // The connection.
   virtual const std::shared_ptr< grpc::Channel > & channel() const = 0;
};

// False: the bytes are no such message. What is copied on the way is overwritten.
bool parse( const grpc::ByteBuffer & bytes, google::protobuf::Message & message );

// What a session asks for at its begin, in the call's metadata.
struct SessionWish {
   bool takeOver = false;  // also from another agent that has the data plane
   bool beside = false;    // what forwards goes on until this session is in step
   double silenceMost = 0; // seconds of the peer's silence after which it ends; 0: it does not
};
std::unique_ptr< Transport > streamTransport( const Peer & peer, std::shared_ptr< TransportSink > sink,
                                              SessionWish wish );
std::unique_ptr< Transport > unaryTransport( const Peer & peer, std::shared_ptr< TransportSink > sink );

} // namespace Vex
