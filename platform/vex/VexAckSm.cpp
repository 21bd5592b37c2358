#include "VexAckSm.h"

#include <unistd.h>

namespace Vex {

void CliSm::pModuleQueueEnq( Gant::Ptr< Module > module, int socket, Gant::String objName, Done done ) {
   waiting_.push_back( { std::move( module ), socket, std::move( objName ), std::move( done ) } );
   if ( waiting_.size() == 1 ) begin();
}

void CliSm::begin() {
   const auto & show = waiting_.front();
   show.module->show( show.socket, show.objName );
}

void CliSm::pModuleQueueDelAll() {
   const auto dropped = std::exchange( waiting_, {} );
   for ( const auto & show : dropped ) show.done( ShowEnd::dropped );
}

void CliSm::doNextModule( const Module * module ) {
   if ( waiting_.empty() || waiting_.front().module.get() != module ) return;
   const auto show = std::move( waiting_.front() );
   waiting_.pop_front();
   show.done( ShowEnd::complete );
   if ( !waiting_.empty() ) begin();
}

AckSm::~AckSm() { doSetupSocketFileDescriptor( -1 ); }

void AckSm::doSetupSocketFileDescriptor( int fd ) {
   if ( fd_ >= 0 ) close( fd_ );
   fd_ = fd;
}

void AckSm::doNextModule() {
   if ( activeMsgCount_ > 0 ) --activeMsgCount_;
   cliSm_->doNextModule( module_ );
}

} // namespace Vex
