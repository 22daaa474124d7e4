#pragma once
// Work that would need more memory than the machine has ends before it starts,
// with one error line, rather than thrashing or being killed half-way. The
// estimates are of the peak, from what the inputs say (voxels a mesh asks
// for, voxels a grid claims); --memory-limit replaces the memory available
// and "none" turns the check off.
#include <cstdint>
#include <string>

namespace zvol {

struct ConversionMesh;

// The limit set by --memory-limit; 0 means the memory available, UINT64_MAX no check.
extern uint64_t g_memoryLimit;

// "512M", "16G", "2T", a byte count, or "none"; throws CLI::ValidationError.
uint64_t ParseMemorySize(const std::string& text);
// What the system can give this process now: the kernel's estimate of
// available memory, capped by the control group's limit when there is one.
uint64_t AvailableMemory();
// "3.2 GiB".
std::string MemoryText(double bytes);

// Throws a Failure naming `what` when `bytes` exceed the limit.
void CheckMemoryNeed(double bytes, const std::string& what);

// Voxels a narrow-band conversion of the mesh at `voxelSize` activates: its
// area over a voxel's face times the band's width, plus, with `fill`, its
// enclosed volume over a voxel's.
double EstimateMeshVoxels(const ConversionMesh& mesh, double voxelSize, double bandVoxels, bool fill);
// The check for a mesh conversion, with the voxel size in the message.
void CheckMeshConversion(const ConversionMesh& mesh, double voxelSize, double bandVoxels, bool fill,
                         const std::string& path);

}  // namespace zvol
