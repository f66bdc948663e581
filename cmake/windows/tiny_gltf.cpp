// TinyGLTF's implementation, compiled once for the Windows build. Its own
// copies of stb's decoder and encoder are static to this file, so they do
// not collide with the frame selection's decoder.
#define TINYGLTF_IMPLEMENTATION
#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STB_IMAGE_WRITE_STATIC
#include <tiny_gltf.h>
