// The loader's implementation, compiled once for the test executables.
#define TINYOBJLOADER_IMPLEMENTATION
#include <tiny_obj_loader.h>
