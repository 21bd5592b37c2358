// GANT_EACH( macro, a, b, ... ) expands macro( a ) macro( b ) ...; GANT_LIST puts commas between. The elements are
// usually parenthesised tuples, so that a macro can take them apart by pasting itself in front: macro tuple.
#pragma once

#define GANT_PARENS ()
#define GANT_EXPAND( ... ) GANT_EXPAND3( GANT_EXPAND3( GANT_EXPAND3( __VA_ARGS__ ) ) )
#define GANT_EXPAND3( ... ) GANT_EXPAND2( GANT_EXPAND2( GANT_EXPAND2( __VA_ARGS__ ) ) )
#define GANT_EXPAND2( ... ) GANT_EXPAND1( GANT_EXPAND1( GANT_EXPAND1( __VA_ARGS__ ) ) )
#define GANT_EXPAND1( ... ) __VA_ARGS__

#define GANT_EACH( macro, ... ) __VA_OPT__( GANT_EXPAND( GANT_EACH_STEP( macro, __VA_ARGS__ ) ) )
#define GANT_EACH_STEP( macro, first, ... )                                                                            \
   macro( first ) __VA_OPT__( GANT_EACH_AGAIN GANT_PARENS( macro, __VA_ARGS__ ) )
#define GANT_EACH_AGAIN() GANT_EACH_STEP

#define GANT_LIST( macro, ... ) __VA_OPT__( GANT_EXPAND( GANT_LIST_STEP( macro, __VA_ARGS__ ) ) )
#define GANT_LIST_STEP( macro, first, ... )                                                                            \
   macro( first ) __VA_OPT__(, GANT_LIST_AGAIN GANT_PARENS( macro, __VA_ARGS__ ) )
#define GANT_LIST_AGAIN() GANT_LIST_STEP
