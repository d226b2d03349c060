#include <iostream>

#include "command.h"
#include "pv/defines.h"
#include "pv/mesh.h"

namespace {

// Opens a map file the way the application does: as a mesh, else as a fused point cloud.
int runMeshInfo(int argc, char** argv) {
  const pavo::Args args(argc, argv);
  if (!args.error().empty()) return pavo::usageError("mesh-info", args.error());
  if (args.positional().size() != 1 || !args.unknown({}).empty())
    return pavo::usageError("mesh-info", "usage: pavo mesh-info FILE.ply|FILE.obj");
  const std::string path = args.positional()[0];
  pv::Mesh mesh;
  if (mesh.load(path.c_str())) {
    std::cout << "triangles: " << mesh.getNumberOfTriangles() << "\n"
              << "points: " << mesh.getNumberOfPoints() << "\n"
              << "textured: " << (mesh.texture.isInit() && !mesh.uv.empty() ? "yes" : "no") << "\n"
              << "chunks: " << mesh.chunks.size() << "\n";
    return 0;
  }
  const std::string mesh_error = pv::lastErrorDetail().str();
  pv::FusedPointCloud cloud;
  if (cloud.load(path.c_str())) {
    std::cout << "triangles: 0\n"
              << "points: " << cloud.getNumberOfPoints() << "\n"
              << "textured: no\n"
              << "chunks: " << cloud.chunks.size() << "\n";
    return 0;
  }
  return pavo::failure("mesh-info", "cannot open " + path + ": " + mesh_error);
}

}  // namespace

PAVO_COMMAND("mesh-info", "FILE", "prints a mesh or point cloud file's triangles, points, texture and chunks",
             runMeshInfo);
