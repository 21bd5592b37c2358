#include "HostMessageQueue.h"

#include <libmnl/libmnl.h>

namespace Host {

namespace {

constexpr size_t chunkBytes = 65536;

} // namespace

void MessageQueue::push( const nlmsghdr & message ) {
   const size_t size = MNL_ALIGN( message.nlmsg_len );
   if ( chunks_.empty() || chunks_.back().size() + size > chunks_.back().capacity() ) {
      chunks_.emplace_back();
      chunks_.back().reserve( std::max( chunkBytes, size ) );
   }
   auto & chunk = chunks_.back();
   const auto * const bytes = reinterpret_cast< const char * >( &message );
   chunk.insert( chunk.end(), bytes, bytes + message.nlmsg_len );
   chunk.resize( chunk.size() + size - message.nlmsg_len );
   ++size_;
}

const nlmsghdr & MessageQueue::front() const {
   return *reinterpret_cast< const nlmsghdr * >( chunks_.front().data() + at_ );
}

void MessageQueue::pop() {
   at_ += MNL_ALIGN( front().nlmsg_len );
   --size_;
   if ( at_ < chunks_.front().size() ) return;
   chunks_.pop_front();
   at_ = 0;
}

void MessageQueue::clear() {
   chunks_.clear();
   at_ = size_ = 0;
}

} // namespace Host
