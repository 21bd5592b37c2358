#include "DpCaptures.h"

#include <algorithm>
#include <cerrno>

namespace Vexdp {

Outcome Captures::begin( std::unique_ptr< Capture > capture, double now, std::uint64_t & id ) {
   return add( std::move( capture ), now, 0, id );
}

Outcome Captures::begin( Capture::Place place, double now, std::uint64_t & id ) {
   return add( std::make_unique< Capture >( std::move( place ) ), now, kOfHook, id );
}

Outcome Captures::add( std::unique_ptr< Capture > capture, double now, std::uint64_t kind, std::uint64_t & id ) {
   expire( now );
   if ( captures_.size() >= kMost ) return refuse( ENOSPC, "{} captures are under way already", kMost );
   capture->askedAt( now );
   id = ++lastId_ | kind;
   captures_.emplace( id, std::move( capture ) );
   return {};
}

void Captures::expire( double now ) {
   std::erase_if( captures_, [ now ]( const auto & entry ) { return entry.second->over( now ); } );
}

std::shared_ptr< Capture > Captures::find( std::uint64_t id ) const {
   const auto at = captures_.find( id );
   return at == captures_.end() ? nullptr : at->second;
}

bool Captures::Eye::watches( const Module & module ) const {
   return std::ranges::any_of( captures(), [ & ]( const auto & entry ) { return entry.second->watches( module ); } );
}

void Captures::Eye::enters( const Module & module, GateId igate, Packets packets, double now ) {
   for ( const auto & [ id, capture ] : captures() ) capture->enters( module, igate, packets, now );
}

void Captures::Eye::leaves( const Module & module, GateId ogate, Packets packets, double now ) {
   for ( const auto & [ id, capture ] : captures() ) capture->leaves( module, ogate, packets, now );
}

vex::pb::TracePacketReply * Captures::Eye::trace( const Module & source, const Packet & packet, double now ) {
   tracers_.clear();
   for ( const auto & [ id, capture ] : captures() )
      if ( capture->traces( source, packet, now ) ) tracers_.push_back( capture.get() );
   if ( tracers_.empty() ) return nullptr;
   intfname_ = source.intfname();
   trace_.Clear();
   return &trace_;
}

void Captures::Eye::traced( double now ) {
   for ( auto * const capture : tracers_ ) capture->traced( trace_, intfname_, now );
}

bool Captures::Eye::tracing( double now ) const {
   return std::ranges::any_of( captures(), [ now ]( const auto & entry ) { return entry.second->tracing( now ); } );
}

} // namespace Vexdp
