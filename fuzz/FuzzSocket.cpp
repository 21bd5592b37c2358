// The command socket: the bytes are what a client sends before it ends. There is no data plane.
#include "FuzzRouter.h"
#include "GantAsio.h"
#include "HostControlClient.h"
#include "HostDaemon.h"

#include <array>
#include <sys/socket.h>

namespace {

class Daemon : public Host::DaemonControl {
 public:
   Host::RouterState & state() override { return router_.state; }
   Gant::Ptr< VexL3Unicast::AgentSm > agent() const override { return nullptr; }
   Gant::Ptr< Vex::VexCommonSmData > vexcsd() const override { return nullptr; }
   Gant::Ptr< Vex::GrpcChannel > channel() const override { return nullptr; }
   Host::DaemonStatus status() const override { return {}; }
   Host::ChangeResult change( Host::ChangeOp op, const std::string & kind, const std::string & entry ) override {
      return applyChange( router_.state, op, kind, entry );
   }
   Host::ChangeResult reload() override { return {}; }

 private:
   Fuzz::Router router_;
};

} // namespace

int LLVMFuzzerTestOneInput( const std::uint8_t * data, std::size_t size ) {
   static const auto commands = Host::CommandTable::all();
   const Host::ControlServer::Limits limits;
   Daemon daemon;
   std::array< int, 2 > ends{};
   if ( socketpair( AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data() ) != 0 ) std::abort();
   bool gone = false;
   {
      Host::ControlClient::Socket socket( Gant::ioContext(), asio::local::stream_protocol(), ends[ 0 ] );
      const auto client = std::make_shared< Host::ControlClient >(
           std::move( socket ), Host::ControlClient::Surroundings{ daemon, commands, limits,
                                                                   [ & ]( Host::ControlClient * ) { gone = true; } } );
      client->begin();
      std::string answer( 65536, '\0' );
      while ( !gone ) {
         const auto sent = size == 0 ? 0 : write( ends[ 1 ], data, size );
         if ( sent > 0 ) {
            data += sent;
            size -= static_cast< std::size_t >( sent );
         }
         if ( size == 0 ) shutdown( ends[ 1 ], SHUT_WR );
         Gant::activityManager()->poll();
         while ( read( ends[ 1 ], answer.data(), answer.size() ) > 0 ) Gant::activityManager()->poll();
      }
      client->close();
   }
   Gant::activityManager()->poll();
   close( ends[ 1 ] );
   return 0;
}
