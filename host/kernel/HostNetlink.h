// Requests to the kernel, its answers and what it notifies, by rtnetlink (RFC 3549) in one network namespace.
#pragma once

#include "GantTypes.h"

#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct nlattr;
struct nlmsghdr;

namespace Host {

// Messages that go out together and are carried out in their order.
class NetlinkBatch {
 public:
   // Begins a message: `flags` beside NLM_F_REQUEST, then its fixed part. Attributes go to the message begun last, up
   // to 8 kB of them.
   template < typename Body >
   void message( U16 type, U16 flags, const Body & body ) {
      begin( type, flags, &body, sizeof( body ) );
   }
   template < typename T >
   void attr( U16 type, const T & value ) {
      attrBytes( type, &value, sizeof( value ) );
   }
   void attrBytes( U16 type, const void * data, size_t size );
   void attrText( U16 type, const std::string & text );
   void nest( U16 type );
   void endNest();
   // A copy of a whole message with its flags, which are for the caller to set, up to 8 kB.
   nlmsghdr & append( const nlmsghdr & message );

   size_t messages() const { return messages_; }
   bool empty() const { return messages_ == 0; }

 private:
   friend class NetlinkSocket;
   void begin( U16 type, U16 flags, const void * body, size_t size );
   nlmsghdr * last();
   // Numbers the messages from `sequence` on.
   void seal( U32 sequence, bool acknowledged );

   std::vector< char > buffer_;
   size_t used_ = 0;
   size_t last_ = 0;
   size_t messages_ = 0;
   std::vector< size_t > nests_;
};

// The attributes behind the fixed part of so many bytes.
void eachAttr( const nlmsghdr & header, size_t fixed, const std::function< void( const nlattr & ) > & each );

// A message that the kernel has not carried out. The others of its batch are carried out all the same.
struct NetlinkRefusal {
   size_t message; // by its place in the batch
   int error;      // an errno
   std::string reason;
};
using NetlinkRefusals = std::vector< NetlinkRefusal >;

// A descriptor that the activity loop reads. Each message is handed over as it comes.
class NetlinkReader {
 public:
   using Each = std::function< void( const nlmsghdr & ) >;
   // The kernel has dropped messages that nobody read in time (ENOBUFS), or the descriptor fails (another errno).
   using Failed = std::function< void( int error ) >;
   // Owns the descriptor, which does not block.
   NetlinkReader( int fd, Each each, Failed failed );
   NetlinkReader( const NetlinkReader & ) = delete;
   NetlinkReader & operator=( const NetlinkReader & ) = delete;
   ~NetlinkReader();

   // While held, what comes stays with the kernel.
   void heldIs( bool held );
   // Reads what is there, so many pieces of up to 32 kB; the loop goes on with the rest.
   void read( unsigned most );
   // Reads what is there, whatever was dropped. The kernel says that it drops once, and again only after nothing was
   // left to be read: so before the tables are read, which is newer than all of this.
   void drain();
   int fd() const;

 private:
   struct Descriptor;
   void wait();
   // What recv() gives, with its messages handed over.
   ssize_t readPiece( Descriptor & own );
   std::shared_ptr< Descriptor > descriptor_;
};

// Sends batches and dumps one after the other: each begins when the one before is answered.
class NetlinkSocket {
 public:
   using Each = NetlinkReader::Each;
   // In a turn of the loop; may send again. The socket may go in it.
   using Done = std::function< void( const NetlinkRefusals & ) >;

   // `settle` is called before each `Done`, so that the caller has read what the kernel notified meanwhile.
   NetlinkSocket( int fd, std::function< void() > settle );
   ~NetlinkSocket();

   void send( NetlinkBatch batch, Done done );
   // What the kernel's notifications of its requests name as the sender.
   U32 port() const;
   // `batch` is one message. A dump that a change has cut across is refused with EINTR.
   void dump( NetlinkBatch batch, Each each, Done done );

 private:
   struct Request {
      NetlinkBatch batch;
      Each each; // of a dump
      Done done;
   };
   void start();
   void handle( const nlmsghdr & header );
   void handleError( const nlmsghdr & header );
   void refuseAll( int error );
   void finish();

   std::function< void() > settle_;
   NetlinkReader reader_;
   std::deque< Request > requests_; // the first one is under way
   NetlinkRefusals refusals_;
   U32 first_ = 1; // sequence number of the first message of the request under way
   bool underWay_ = false;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

constexpr int defaultReceiveBuffer = 4 << 20; // bytes
// What the kernel keeps of notifications until they are read, of sockets that are opened from here on. What is more is
// lost, and everything is read again.
void receiveBufferIs( int bytes );
// A new socket in the namespace: empty: the process's own; a name as of `ip netns`; or a path. `groups` are those of
// RTNLGRP_*. Throws std::system_error.
int openNetlink( const std::string & netns, std::span< const U32 > groups );
// "/run/netns/customer"; empty for the process's own namespace.
std::string pathOfNamespace( const std::string & netns );
// Tells namespaces of one name apart. 0: there is none.
U64 idOfNamespace( const std::string & netns );
// Runs it in the namespace, on a thread of its own, and waits for it. Throws what it throws, or std::system_error where
// the namespace cannot be entered.
void runInNamespace( const std::string & netns, const std::function< void() > & work );

} // namespace Host
