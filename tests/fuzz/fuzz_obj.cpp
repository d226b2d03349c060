// libFuzzer target for the OBJ and MTL readers. The input is an OBJ text, optionally followed by
// a NUL byte and the text served for every material library the OBJ names.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "io/internal/obj.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  const void* nul = std::memchr(text, 0, size);
  const size_t obj_size = nul ? size_t(static_cast<const char*>(nul) - text) : size;
  const std::string mtl = nul ? std::string(text + obj_size + 1, size - obj_size - 1) : std::string();
  const pv::internal::SideFileLoader loader = [&](const std::string&, std::string& bytes) {
    if (!nul) return false;
    bytes = mtl;
    return true;
  };
  for (bool vertices_only : {false, true}) {
    pv::internal::MeshData mesh;
    const pv::internal::FileResult r = pv::internal::parseObj(text, obj_size, "dir", loader, mesh, vertices_only);
    if (r.ok && !mesh.consistent()) std::abort();
    if (!r.ok && r.error.empty()) std::abort();
  }
  std::vector<std::pair<std::string, std::string>> maps;
  pv::internal::parseMtl(mtl, maps);
  return 0;
}
