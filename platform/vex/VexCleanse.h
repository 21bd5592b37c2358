// Overwriting of the key material in messages that are not needed any more.
#pragma once

namespace google::protobuf {
class Message;
}

namespace Vex {

// Overwrites every field of bytes, which keeps its length. Key material travels in such fields only.
void cleanse( const google::protobuf::Message & message );

} // namespace Vex
