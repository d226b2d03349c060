// Map object operations whose implementation is not in this build yet: each fails with a reason.
#include "core/internal/error.h"
#include "pv/mesh.h"

namespace pv {
namespace {
bool unavailable(const char* what) {
  internal::fail(ERROR_CODE::FAILURE, std::string(what) + " is not available in this build");
  return false;
}
}  // namespace

bool Mesh::filter(MeshFilterParameters, bool) { return unavailable("Mesh::filter"); }
bool Mesh::applyTexture(MESH_TEXTURE_FORMAT) { return unavailable("Mesh::applyTexture"); }

}  // namespace pv
