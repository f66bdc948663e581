# TinyGLTF for the mingw-w64 cross-build. Debian ships tinygltf compiled
# for Linux only; its header holds the whole library, so the implementation
# is compiled here for the target, with Debian's header-only nlohmann-json
# and stb. The host's /usr/include cannot be on the target's include path,
# so the headers are linked into the build tree one by one.
if(NOT TARGET TinyGLTF::TinyGLTF)
  set(_meridian_tinygltf_headers ${CMAKE_BINARY_DIR}/windows-tinygltf/include)
  file(MAKE_DIRECTORY ${_meridian_tinygltf_headers})
  foreach(header IN ITEMS tiny_gltf.h nlohmann stb/stb_image.h stb/stb_image_write.h)
    get_filename_component(name ${header} NAME)
    if(NOT EXISTS ${_meridian_tinygltf_headers}/${name})
      file(CREATE_LINK /usr/include/${header} ${_meridian_tinygltf_headers}/${name} SYMBOLIC)
    endif()
  endforeach()
  add_library(meridian_windows_tinygltf STATIC ${CMAKE_CURRENT_LIST_DIR}/tiny_gltf.cpp)
  target_include_directories(meridian_windows_tinygltf SYSTEM PUBLIC ${_meridian_tinygltf_headers})
  add_library(TinyGLTF::TinyGLTF ALIAS meridian_windows_tinygltf)
  set(TinyGLTF_FOUND TRUE)
endif()
