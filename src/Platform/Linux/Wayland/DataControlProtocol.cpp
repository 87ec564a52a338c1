// The generated interface tables, compiled as C++: the header before them gives them external linkage.
#include <data-control-client.h>

#include <data-control-interfaces.h>
