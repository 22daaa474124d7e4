#pragma once
// Mesh files: every format that Assimp reads (OBJ, PLY, STL, glTF, FBX,
// Collada, 3DS, OFF, ...) in; OBJ, PLY, STL and binary glTF out. Shared by
// zvol, scene files and the Python package.
//
// Files are right-handed and the scene left-handed: readers and writers mirror
// the third axis and reverse the winding, so a file's outward normals by the
// right-hand rule stay outward. A file that states its up axis and unit
// (glTF, FBX, Collada) is turned upright (y up) and scaled into the unit the
// caller asks for; a file that states neither is taken as it stands.
#include <memory>
#include <string>

#include "host/core/result.h"
#include "host/core/thread.h"
#include "host/core/types.h"

namespace zta {

class PolygonObject;

struct MeshReadOptions {
  // Metres per unit of the result. Positions of a file that states its unit
  // are scaled into it; those of a file that states none keep their numbers.
  Float unitMeters = 1.0;
};

// What a file said about itself.
struct MeshFileInfo {
  // The importer's name of the format ("Autodesk FBX Importer", ...).
  String format;
  // Metres per unit of the positions as the importer gives them, 0 when the
  // file states no unit (Collada's importer has scaled to metres already).
  Float unitMeters = 0.0;
  // The file's up axis as it states it ("+Y", "-Z", ...), empty when it
  // states none or the importer has turned the scene upright itself.
  String upAxis;
  // The factor by which positions were scaled.
  Float scale = 1.0;
};

struct MeshWriteOptions {
  // Metres per unit of the object's positions. OBJ, PLY and STL take the
  // numbers as they are; glTF, whose unit is the metre, is scaled by it.
  Float unitMeters = 1.0;
};

// Whether the file name ends in an extension that ReadMeshFile / WriteMeshFile takes.
bool IsReadableMeshFile(const String& path);
bool IsWritableMeshFile(const String& path);
// Whether WriteMeshFile keeps a polygon object's UVs in a file of this name
// (all but STL).
bool MeshFileKeepsUVs(const String& path);
// The extensions that WriteMeshFile takes, for messages: "OBJ, PLY, STL or glTF (.glb)".
const char* WritableMeshFormats();

// All meshes of the file, placed by their node transforms, as one polygon
// object in the scene's frame. Polygons of more than four corners are cut into
// triangles. Errors: a missing or unreadable file, a polygon index out of
// range, a point that is not finite, more than 2^31 points or polygons.
// `thread` (may be null) stops the read.
Result<std::unique_ptr<PolygonObject>> ReadMeshFile(const String& path, const ThreadRef& thread,
                                                    const MeshReadOptions& options = {}, MeshFileInfo* info = nullptr);

// Writes the object, placed by its global matrix, to `path` (OBJ, PLY, STL or
// GLB by extension) in full or not at all. OBJ, PLY and glTF keep the object's
// UVW tag; PLY and glTF keep its vertex maps as attributes of the vertices
// (PLY: a float property by the map's name; glTF: "_NAME" in capitals).
Result<void> WriteMeshFile(const PolygonObject& op, const String& path, const MeshWriteOptions& options = {});

// The extension of a mesh file's path, lower case and with its dot (".obj").
std::string MeshFileExtension(const std::string& path);

}  // namespace zta
