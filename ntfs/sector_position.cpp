// File sector position: the runs of absolute disk sectors that hold a file's clusters, from the file
// system's retrieval pointers and the volume layout.
#include <algorithm>
#include <cstring>

#include "../platform/unique_handles.h"
#include "ntfs_internal.h"

namespace {

// Room for the header and 64 extents; an answer with more extents comes in further calls.
constexpr DWORD kRetrievalBufferBytes = 1040;
constexpr size_t kExtentCountOffset = 0;
constexpr size_t kStartingVcnOffset = 8;
constexpr size_t kFirstExtentOffset = 16;
constexpr size_t kExtentBytes = 16;
constexpr DWORD kExtentsInBuffer = (kRetrievalBufferBytes - kFirstExtentOffset) / kExtentBytes;
constexpr LONGLONG kNoClusters = -1;

template <class T>
T ReadAt(const BYTE* buffer, size_t offset) {
    T value;
    std::memcpy(&value, buffer + offset, sizeof value);
    return value;
}

// Cluster arithmetic is done on the low 32 bits, modulo 2^32, and only the result is widened onto the
// volume's 64-bit first sector.
DWORD Low32(LONGLONG value) { return static_cast<DWORD>(static_cast<ULONGLONG>(value)); }

struct Walk {
    ULONGLONG firstSector = 0;  // F
    ULONGLONG endSector = 0;    // E: the sector just after the last run appended
};

// Appends the file's runs. The walk ends at the first run without clusters, at the first call that fails
// with anything but ERROR_MORE_DATA, at an empty answer, and at an answer that does not move past the
// cluster it was asked to start from: a platform repeating itself must not hold the call for ever.
Walk WalkRuns(HANDLE file, ULONGLONG volumeStart, DWORD clusterSectors, std::vector<SectorExtent>& extents) {
    Walk walk;
    alignas(8) BYTE buffer[kRetrievalBufferBytes];
    std::memset(buffer, 0, sizeof buffer);
    LONGLONG startingVcn = 0;
    for (;;) {
        STARTING_VCN_INPUT_BUFFER input;
        std::memset(&input, 0, sizeof input);
        input.StartingVcn.QuadPart = startingVcn;
        DWORD returned = 0;
        // ERROR_MORE_DATA means the buffer holds the first 64 runs from the starting cluster: use them.
        if (!sys().DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &input, sizeof input, buffer, sizeof buffer, &returned,
                                   nullptr) &&
            sys().GetLastError() != ERROR_MORE_DATA)
            break;
        // A count above what the buffer can hold is read as the 64 extents it does hold.
        const DWORD count = std::min(ReadAt<DWORD>(buffer, kExtentCountOffset), kExtentsInBuffer);
        if (count == 0) break;
        LONGLONG previousVcn = ReadAt<LONGLONG>(buffer, kStartingVcnOffset);
        if (walk.firstSector == 0) {
            const LONGLONG firstLcn = ReadAt<LONGLONG>(buffer, kFirstExtentOffset + sizeof(LONGLONG));
            walk.firstSector = volumeStart + static_cast<DWORD>(Low32(firstLcn) * clusterSectors);
        }
        for (DWORD index = 0; index < count; ++index) {
            const size_t at = kFirstExtentOffset + index * kExtentBytes;
            const LONGLONG nextVcn = ReadAt<LONGLONG>(buffer, at);
            const LONGLONG lcn = ReadAt<LONGLONG>(buffer, at + sizeof(LONGLONG));
            // A run with no clusters on disk (a hole, or clusters saved by compression) ends the walk.
            if (lcn == kNoClusters) return walk;
            const DWORD runClusters = Low32(nextVcn) - Low32(previousVcn);
            walk.endSector = volumeStart + static_cast<DWORD>((Low32(lcn) + runClusters) * clusterSectors);
            extents.push_back(SectorExtent{volumeStart + static_cast<DWORD>(Low32(lcn) * clusterSectors),
                                           static_cast<DWORD>(runClusters * clusterSectors)});
            previousVcn = nextVcn;
        }
        if (previousVcn <= startingVcn) break;
        startingVcn = previousVcn;
    }
    return walk;
}

}  // namespace

VELMORA_EXPORT int GetFileSectorPos(CString path, std::vector<SectorExtent>* pExtents, ULONGLONG* pFirstSector,
                                    ULONGLONG* pLastDataSector, ULONGLONG* pLastSector) {
    return VelmoraGuardedCall(0, [&] {
        if (pExtents == nullptr || path.IsEmpty()) return 0;
        ULONGLONG volumeStart = 0;
        BYTE clusterSectors = 0;
        DWORD sectorSize = 0;
        // The first character is taken as the drive letter, whatever the path's form.
        if (!GetVolumeLayout(path[0], &volumeStart, &clusterSectors, &sectorSize)) return 0;

        Walk walk;
        {
            UniqueHandle file(sys().CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                                FILE_ATTRIBUTE_NORMAL, nullptr));
            if (!file) return 0;
            walk = WalkRuns(file.get(), volumeStart, clusterSectors, *pExtents);
        }

        if (pFirstSector != nullptr) *pFirstSector = walk.firstSector;
        const ULONGLONG lastSector = walk.endSector > 0 ? walk.endSector - 1 : 0;
        if (pLastSector != nullptr) *pLastSector = lastSector;
        if (pLastDataSector != nullptr && walk.endSector > 0) {
            // The sectors of the last cluster past the end of the data hold nothing of the file.
            ULONGLONG size = 0;
            if (!GetFileLength(CString(path), &size)) size = 0;
            const ULONGLONG dataSectors = size / sectorSize + (size % sectorSize != 0 ? 1 : 0);
            const ULONGLONG usedInLastCluster = dataSectors % clusterSectors;
            *pLastDataSector = usedInLastCluster > 0 ? lastSector - (clusterSectors - usedInLastCluster) : lastSector;
        }
        return 1;
    });
}
