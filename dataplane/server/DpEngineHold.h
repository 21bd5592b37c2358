// What the engine's sources share: how its workers are held, and how ports are found.
#pragma once

#include "DpEngine.h"
#include "DpReport.h"

#include <cerrno>

namespace Vexdp {

class Engine::Pause {
 public:
   explicit Pause( const Engine & engine ) : workers_( const_cast< Workers & >( engine.workers_ ) ) { workers_.hold(); }
   ~Pause() { workers_.letGo(); }
   Pause( const Pause & ) = delete;
   Pause & operator=( const Pause & ) = delete;

 private:
   Workers & workers_;
};

// The lock, and a pause.
class Engine::Hold {
 public:
   explicit Hold( const Engine & engine ) : lock_( engine.mutex_ ), pause_( engine ) {}

 private:
   const std::lock_guard< std::mutex > lock_;
   const Pause pause_;
};

template < class Response >
const Device * Engine::portOf( const std::string & name, const char * request, Response & response ) const {
   const auto * device = ports_.find( name );
   if ( device == nullptr ) report( { name, {}, request }, refuse( ENOENT, "there is no such port" ), response );
   return device;
}

} // namespace Vexdp
