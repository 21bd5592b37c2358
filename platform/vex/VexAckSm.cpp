#include "VexAckSm.h"

#include <unistd.h>

namespace Vex {

CliSm::~CliSm() {
   pModuleQueueDelAll();
   if ( showing_ ) std::exchange( showing_, {} )->done( ShowEnd::dropped );
}

void CliSm::pModuleQueueEnq( const Gant::Ptr< Module > & module, int socket, Gant::String objName, Done done ) {
   waiting_.push_back( { module.get(), socket, std::move( objName ), std::move( done ) } );
   if ( !showing_ ) begin();
}

void CliSm::begin() {
   showing_ = std::move( waiting_.front() );
   waiting_.pop_front();
   showing_->module->show( showing_->socket, showing_->objName );
}

void CliSm::pModuleQueueDelAll() {
   for ( const auto & show : std::exchange( waiting_, {} ) ) show.done( ShowEnd::dropped );
}

void CliSm::doNextModule( const Module * module ) {
   if ( !showing_ || ( showing_->module != nullptr && showing_->module != module ) ) return;
   const auto show = *std::exchange( showing_, {} );
   show.done( ShowEnd::complete );
   if ( !showing_ && !waiting_.empty() ) begin();
}

void CliSm::moduleGoes( const Module * module ) {
   if ( showing_ && showing_->module == module ) showing_->module = nullptr;
   std::deque< Show > dropped;
   std::erase_if( waiting_, [ & ]( Show & show ) {
      if ( show.module != module ) return false;
      dropped.push_back( std::move( show ) );
      return true;
   } );
   for ( const auto & show : dropped ) show.done( ShowEnd::dropped );
}

AckSm::~AckSm() {
   doSetupSocketFileDescriptor( -1 );
   // Replaced, it leaves its module to the next one.
   const auto * const now = module_->ackSm().get();
   if ( now == nullptr || now == this ) cliSm_->moduleGoes( module_ );
}

void AckSm::doSetupSocketFileDescriptor( int fd ) {
   if ( fd_ >= 0 ) close( fd_ );
   fd_ = fd;
}

void AckSm::doNextModule() {
   if ( activeMsgCount_ > 0 ) --activeMsgCount_;
   cliSm_->doNextModule( module_ );
}

} // namespace Vex
