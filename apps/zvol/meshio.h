#pragma once
// Mesh files for zvol: the host's readers and writers (host/modeling/meshio.h)
// with zvol's failures, and what the verbs that voxelise a mesh share. A file
// that states its unit (glTF, FBX, Collada) is read in metres.
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/core/math.h"
#include "host/core/thread.h"
#include "zelmar/volumetools.h"

namespace zta {
class PolygonObject;
}

namespace zvol {

// Whether the file name ends in an extension that ReadMesh / WriteMesh takes.
bool IsReadableMeshPath(const std::string& path);
bool IsWritableMeshPath(const std::string& path);
// Checks an output option for a file name that WriteMesh takes.
CLI::Validator MeshOutputValidator();

// zta::ReadMeshFile in metres; throws Failure with its error.
std::unique_ptr<zta::PolygonObject> ReadMesh(const std::string& path, const zta::ThreadRef& thread);

// zta::WriteMeshFile; throws Failure with its error.
void WriteMesh(const zta::PolygonObject& op, const std::string& path);

// What MeshToVolume takes: world positions and polygons with d marking a
// triangle (the reader has checked the indices, MeshToVolume checks them again).
struct ConversionMesh {
  std::vector<zta::Vector> points;
  std::vector<zelmar::VolumeConversionPolygon> polygons;
};
ConversionMesh ToConversionMesh(const zta::PolygonObject& op);

// Hands the pages of freed memory back to the system: between the stages of a
// mesh job, the many small blocks of one stage's trees would otherwise stay
// resident under the next stage's arrays.
void ReleaseFreedMemory();

// Box of the points that polygons use, in the scene; false when there are none.
bool MeshBounds(const zta::PolygonObject& op, zta::Vector& min, zta::Vector& max);

// --voxel-size V | --dim N of the verbs that voxelise a mesh; --dim counts the
// voxels along the longest side of the mesh's box.
void AddResolutionOptions(CLI::App& app, double& voxelSize, int& dim);
// A usage error unless exactly one of the two was given.
void CheckResolutionOptions(double voxelSize, int dim);
// The voxel size the options ask for. A mesh without polygons is an error,
// since it has no surface to convert.
double ResolveVoxelSize(const zta::PolygonObject& op, const std::string& path, double voxelSize, int dim);

}  // namespace zvol
