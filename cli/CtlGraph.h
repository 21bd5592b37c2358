// Pictures of the module graph, and of a packet's way through it.
#pragma once

#include "CtlView.h"

namespace Ctl {

// A line for each module, and below it one for each gate.
class GraphView : public View {
 public:
   using View::View;
   void row( const Json & row ) override;
   void end( const Json & ) override {}
};

// Graphviz.
class DotView : public View {
 public:
   using View::View;
   void row( const Json & row ) override;
   void end( const Json & end ) override;
   void failed( const Error & error ) override;

 private:
   void open();
   bool open_ = false;
};

// A packet's steps, and where it ended.
class PacketView : public View {
 public:
   using View::View;
   void row( const Json & row ) override;
   void end( const Json & end ) override;

 private:
   size_t steps_ = 0;
};

} // namespace Ctl
