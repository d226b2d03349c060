// Runs Debian's `assimp info` on a file and reads the counts it prints (tests only).
#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace mapura::test {

struct AssimpInfo {
  bool loaded = false;
  size_t vertices = 0;
  size_t faces = 0;
  std::string types;  ///< "Primitive Types" line, e.g. "triangles" or "pointslinesn-polygons"
  struct Part {
    size_t vertices = 0, faces = 0;
    std::string type;  ///< point, line, triangle, polygon
  };
  std::vector<Part> meshes;
};

inline bool assimpAvailable() { return std::system("command -v assimp > /dev/null 2>&1") == 0; }

/// `raw` imports without post-processing (no triangulation, no vertex joining).
inline AssimpInfo assimpInfo(const std::string& path, bool raw) {
  AssimpInfo info;
  std::string quoted = "'";
  for (char c : path) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  quoted += "'";
  const std::string command = "assimp info " + quoted + (raw ? " -r" : "") + " 2>/dev/null";
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return info;
  std::string text;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0) text.append(buffer, n);
  pclose(pipe);
  std::istringstream lines(text);
  std::string line;
  bool in_meshes = false;
  while (std::getline(lines, line)) {
    const auto value = [&line](const char* key) { return std::string(line.substr(std::string(key).size())); };
    if (line.rfind("Vertices:", 0) == 0)
      info.vertices = std::stoul(value("Vertices:")), info.loaded = true;
    else if (line.rfind("Faces:", 0) == 0)
      info.faces = std::stoul(value("Faces:"));
    else if (line.rfind("Primitive Types:", 0) == 0) {
      std::istringstream w(value("Primitive Types:"));
      w >> info.types;
    } else if (line.rfind("Meshes:  (name)", 0) == 0)
      in_meshes = true;
    else if (in_meshes && line.find("): [") != std::string::npos) {
      // "    0 (name): [8 / 0 / 12 | triangle]"
      const std::string part = line.substr(line.find("): [") + 4);
      AssimpInfo::Part p;
      char type[64] = {0};
      size_t bones = 0;
      if (std::sscanf(part.c_str(), "%zu / %zu / %zu | %63[a-z]", &p.vertices, &bones, &p.faces, type) == 4) {
        p.type = type;
        info.meshes.push_back(p);
      }
    } else if (in_meshes && line.empty())
      in_meshes = false;
  }
  return info;
}

}  // namespace mapura::test
