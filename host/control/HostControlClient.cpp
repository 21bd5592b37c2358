#include "HostControlClient.h"

#include <asio/buffer.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>

namespace Host {

namespace {

// A slice is a few milliseconds of the loop's time.
constexpr size_t sliceRowsMax = 256;
constexpr size_t sliceBytesMax = 65536;

Json errorOf( ErrorCode code, const std::string & message ) {
   return { { "code", name( code ) }, { "message", message } };
}

// What a client sent may come back in a message, and need not be text.
std::string textOf( const Json & json ) { return json.dump( -1, ' ', false, Json::error_handler_t::replace ); }

} // namespace

ControlClient::ControlClient( Socket socket, Surroundings surroundings ) :
     socket_( std::move( socket ) ), around_( std::move( surroundings ) ), idleSince_( Gant::activityManager()->now() ),
     clock_( Gant::activityManager()->newClock() ), gantClock_( *this ) {}

void ControlClient::read() {
   socket_.async_read_some( asio::buffer( buffer_ ), [ self = shared_from_this() ]( auto error, size_t bytes ) {
      self->handleRead( error, bytes );
   } );
}

void ControlClient::handleRead( const std::error_code & error, size_t bytes ) {
   if ( closed_ || state_ == State::closing ) return;
   if ( error ) {
      if ( input_.empty() ) return drop();
      return refuse( ErrorCode::usage, "the request has no end" );
   }
   input_.append( buffer_.data(), bytes );
   Gant::cleanse( buffer_.data(), bytes );
   handleInput();
}

void ControlClient::handleInput() {
   const auto end = input_.find( '\n' );
   if ( std::min( end, input_.size() ) > around_.limits.requestBytesMax )
      return refuse( ErrorCode::usage,
                     Gant::format( "a request is one line of at most %zu bytes", around_.limits.requestBytesMax ) );
   if ( end != std::string::npos ) {
      // Moving what is behind it to the front, or assigning what is short enough to be in the string itself, would
      // leave some of it where it was.
      const auto line = input_.substr( 0, end );
      Gant::CleansedString( input_, end + 1 ).swap( input_ );
      clock_->timeMinIs( Gant::Clock::never );
      return request( line );
   }
   const auto before = std::exchange( state_, input_.empty() ? State::idle : State::reading );
   if ( state_ == State::idle )
      idleSince_ = Gant::activityManager()->now();
   else if ( before != State::reading )
      clock_->timeMinIs( Gant::activityManager()->now() + around_.limits.requestSeconds );
   read();
}

namespace {

// How deep its lists and objects stand in each other.
size_t nesting( std::string_view json ) {
   size_t depth = 0, deepest = 0;
   bool inText = false;
   for ( size_t at = 0; at < json.size(); ++at ) {
      const char c = json[ at ];
      if ( inText && c == '\\' )
         ++at;
      else if ( c == '"' )
         inText = !inText;
      else if ( !inText && ( c == '{' || c == '[' ) )
         deepest = std::max( deepest, ++depth );
      else if ( !inText && ( c == '}' || c == ']' ) && depth > 0 )
         --depth;
   }
   return deepest;
}

} // namespace

void ControlClient::request( std::string_view text ) {
   constexpr size_t deepest = 32;
   if ( nesting( text ) > deepest ) return refuse( ErrorCode::usage, "a request is nested at most 32 deep" );
   auto request = Json::parse( text, nullptr, false );
   const std::unique_ptr< Json, void ( * )( Json * ) > overwritten( &request, []( Json * json ) { cleanse( *json ); } );
   if ( !request.is_object() ) return refuse( ErrorCode::usage, "a request is a JSON object on one line" );
   state_ = State::answering;
   end_ = Json::object();
   rows_ = 0;
   try {
      answer_ = around_.commands.answer( around_.daemon, request, [ weak = weak_from_this() ] {
         const auto self = weak.lock();
         if ( self && std::exchange( self->waiting_, false ) ) self->sliceLater();
      } );
   } catch ( const CommandError & error ) {
      line( { { "error", errorOf( error.code, error.what() ) } } );
      return handleInput();
   }
   line( { { "ok", true }, { "command", request[ "command" ] } } );
   slice();
}

void ControlClient::sliceLater() {
   if ( closed_ || std::exchange( sliceDue_, true ) ) return;
   asio::post( socket_.get_executor(), [ self = shared_from_this() ] {
      self->sliceDue_ = false;
      self->slice();
   } );
}

void ControlClient::slice() {
   if ( closed_ || !answer_ || output_.size() + writing_.size() > around_.limits.answerBytesMax ) return;
   sliceRows_ = 0;
   sliceBegin_ = output_.size();
   // A wake-up may come before the step that asks for it returns.
   waiting_ = true;
   try {
      switch ( answer_->step( *this ) ) {
      case Answer::Step::more:
         waiting_ = false;
         waitEnds_ = 0;
         sliceLater();
         break;
      case Answer::Step::wait: wait(); break;
      case Answer::Step::done: return endAnswer( Json() );
      }
   } catch ( const CommandError & error ) {
      return endAnswer( errorOf( error.code, error.what() ) );
   } catch ( const std::exception & error ) {
      return endAnswer( errorOf( ErrorCode::refused, std::string( "internal error: " ) + error.what() ) );
   }
}

// While something is being written, the client is what is waited for.
void ControlClient::wait() {
   if ( waitEnds_ == 0 ) waitEnds_ = Gant::activityManager()->now() + around_.limits.answerSeconds;
   if ( writing_.empty() ) clock_->timeMinIs( waitEnds_ );
}

void ControlClient::endAnswer( const Json & error ) {
   waiting_ = false;
   waitEnds_ = 0;
   answer_ = nullptr;
   Json end{ { "rows", rows_ } };
   for ( auto & [ key, value ] : end_.items() ) end[ key ] = std::move( value );
   if ( !error.is_null() ) end[ "error" ] = error;
   line( { { "end", std::move( end ) } } );
   handleInput();
}

void ControlClient::row( const Json & row ) {
   ++rows_;
   ++sliceRows_;
   output_ += "{\"row\":";
   output_ += textOf( row );
   output_ += "}\n";
   write();
}

bool ControlClient::full() const { return sliceRows_ >= sliceRowsMax || output_.size() >= sliceBegin_ + sliceBytesMax; }

void ControlClient::line( const Json & json ) {
   output_ += textOf( json );
   output_ += '\n';
   write();
}

void ControlClient::write() {
   if ( closed_ || !writing_.empty() || output_.empty() ) return;
   writing_.swap( output_ );
   sliceBegin_ = 0;
   // While an answer is made, nothing of a request is waited for: the clock is free for this.
   clock_->timeMinIs( Gant::activityManager()->now() + around_.limits.stalledSeconds );
   asio::async_write( socket_, asio::buffer( writing_ ),
                      [ self = shared_from_this() ]( auto error, size_t ) { self->handleWritten( error ); } );
}

void ControlClient::handleWritten( const std::error_code & error ) {
   if ( closed_ ) return;
   if ( error ) return drop();
   writing_.clear();
   if ( state_ != State::reading ) clock_->timeMinIs( Gant::Clock::never );
   write();
   if ( writing_.empty() && state_ == State::closing ) return drop();
   if ( answer_ && waiting_ && writing_.empty() ) wait();
   if ( answer_ && !waiting_ ) sliceLater();
}

void ControlClient::refuse( ErrorCode code, const std::string & message ) {
   state_ = State::closing;
   line( { { "error", errorOf( code, message ) } } );
}

void ControlClient::handleTime() {
   if ( state_ == State::reading ) return refuse( ErrorCode::usage, "the request has no end" );
   // One that has been woken, or makes rows, has what it waited for.
   if ( answer_ && writing_.empty() && !waiting_ ) return;
   if ( answer_ && writing_.empty() )
      return endAnswer( errorOf( ErrorCode::unavailable, Gant::format( "the data plane has not answered for %g s",
                                                                       around_.limits.answerSeconds ) ) );
   drop();
}

void ControlClient::drop() {
   close();
   around_.gone( this );
}

void ControlClient::close() {
   if ( std::exchange( closed_, true ) ) return;
   answer_ = nullptr;
   clock_->timeMinIs( Gant::Clock::never );
   std::error_code ignored;
   socket_.close( ignored );
}

} // namespace Host
