// The daemon's metrics, for Prometheus.
#pragma once

#include <memory>
#include <string>

namespace Host {

class DaemonControl;

// Serves /metrics over HTTP. Off until it is opened.
//
// Two threads meet in one place. The loop's thread makes a snapshot of all values once a second, in slices of bounded
// work, and publishes it: from then on it is never changed. The thread of the HTTP server reads the newest published
// snapshot, and holds it as long as a scrape lasts; whoever lets go of it last frees it. A scrape so never waits for
// the loop, nor the loop for a scrape.
class Metrics {
 public:
   // The daemon lives longer.
   explicit Metrics( DaemonControl & daemon );
   ~Metrics();
   Metrics( const Metrics & ) = delete;
   Metrics & operator=( const Metrics & ) = delete;

   // Listens at "ADDRESS:PORT". Gives the reason when it cannot.
   std::string open( const std::string & address );

 private:
   struct Impl;
   std::unique_ptr< Impl > impl_;
};

// Why a text is not ADDRESS:PORT, empty when it is: "127.0.0.1:9410", "[::1]:9410".
std::string wrongMetricsAddress( const std::string & text );

} // namespace Host
