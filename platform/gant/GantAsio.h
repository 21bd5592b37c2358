// The loop's io_context, for those who wait for descriptors and signals. Not for public headers.
#pragma once

#include "GantActivity.h"

#include <asio/io_context.hpp>

namespace Gant {

asio::io_context & ioContext();

} // namespace Gant
