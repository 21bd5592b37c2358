// What a capture takes, written into a named fifo that somebody's tcpdump or tshark reads.
#pragma once

#include "DpCapture.h"

#include <condition_variable>
#include <mutex>
#include <thread>

namespace Vexdp {

enum class CaptureFormat : std::uint8_t { pcap, pcapng };

// A thread of its own, so that a slow reader holds up neither the worker nor those who ask: what it does not take is
// lost to the capture. It waits for a first reader; when one goes it ends, or, to reconnect, waits for the next one.
class FifoWriter {
 public:
   struct Options {
      std::string path;
      CaptureFormat format = CaptureFormat::pcap;
      bool reconnect = false;
   };
   // ENOENT, EINVAL: there is no fifo of the path.
   static Outcome check( const std::string & path );

   // Keeps the capture alive by asking it.
   FifoWriter( std::shared_ptr< Capture > capture, Options options );
   ~FifoWriter();
   FifoWriter( const FifoWriter & ) = delete;
   FifoWriter & operator=( const FifoWriter & ) = delete;

   // Its reader has gone for good.
   bool over() const { return over_; }

 private:
   static constexpr std::size_t kMostWaiting = 1u << 20; // bytes
   void run();
   void gather();
   // False: nobody reads.
   bool flush();
   void write( const vex::pb::CaptureReply::Packet & packet );

   const std::shared_ptr< Capture > capture_;
   const Options options_;
   int fd_ = -1;
   bool read_ = false; // there was a reader
   bool headed_ = false;
   bool ethernet_ = false; // what a file of pcap holds: it has one kind of packets
   std::string waiting_;
   std::atomic< bool > over_ = false;
   std::mutex mutex_;
   std::condition_variable ends_;
   bool ending_ = false;
   std::thread thread_;
};

} // namespace Vexdp
