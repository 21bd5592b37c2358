// The verdicts on changes, in a word.
#pragma once

#include "HostDaemonControl.h"

namespace Host {

inline ChangeResult done() { return {}; }
inline ChangeResult invalid( std::string message ) { return { ChangeResult::Code::invalid, std::move( message ) }; }
inline ChangeResult refused( std::string message ) { return { ChangeResult::Code::refused, std::move( message ) }; }
inline ChangeResult notFound( std::string message ) { return { ChangeResult::Code::notFound, std::move( message ) }; }
inline bool isDone( const ChangeResult & result ) { return result.code == ChangeResult::Code::done; }

} // namespace Host
