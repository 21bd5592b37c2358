// What captured packets look like: a line each, a file of pcapng, or their way.
#pragma once

#include "CtlView.h"

#include <fstream>
#include <map>

namespace Ctl {

// A line a packet: when, where, how long, from whom to whom. Each is out before the next one comes.
class CaptureView : public View {
 public:
   using View::View;
   void row( const Json & row ) override;
   void end( const Json & end ) override;
};

// A file that tcpdump and Wireshark open (draft-ietf-opsawg-pcapng): one interface description for each module, with
// the interface's name and the module's. It is whole after each packet.
class PcapView : public View {
 public:
   // "-": to `out`. Throws Error when the file cannot be made.
   PcapView( const std::string & path, std::ostream & out );
   void row( const Json & row ) override;
   void end( const Json & end ) override;

 private:
   unsigned interfaceOf( const Json & row );
   void write( const std::string & bytes );

   std::ofstream file_;
   std::ostream & to_;
   const std::string path_;
   std::map< std::pair< std::string, bool >, unsigned > interfaces_; // by module, and whether it has frames
   size_t packets_ = 0;
};

// Each packet's way, module by module, as `trace packet` has it.
class WayView : public View {
 public:
   using View::View;
   void row( const Json & row ) override;
   void end( const Json & end ) override;
};

} // namespace Ctl
