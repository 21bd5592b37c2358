// What the library shows to its host. Everything else is its own.
#pragma once

#define VEXL3_EXPORT __attribute__( ( visibility( "default" ) ) )
