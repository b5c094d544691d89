// Volume names of host-folder volumes, and their place in the mount manager: a host folder's name is a
// GUID made from its real path, so the same folder has the same "\\?\Volume{GUID}\" in every run.
#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>

#include "../core/internal.h"
#include "../core/mount_manager.h"
#include "../host.h"

namespace vlx {

namespace {

// A name-based GUID (RFC 4122 version 5: SHA-1 over a namespace of ours and the folder's real path).
WString NameFromFolder(const std::string& realFolder) {
    static const unsigned char kNamespace[16] = {0x5b, 0x0e, 0x6c, 0x41, 0x9d, 0x27, 0x4f, 0x0a,
                                                 0x8e, 0x33, 0x71, 0xc2, 0x14, 0xa9, 0x60, 0xd5};
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_MD_CTX* context = EVP_MD_CTX_new();
    EVP_DigestInit_ex(context, EVP_sha1(), nullptr);
    EVP_DigestUpdate(context, kNamespace, sizeof kNamespace);
    EVP_DigestUpdate(context, realFolder.data(), realFolder.size());
    EVP_DigestFinal_ex(context, digest, &size);
    EVP_MD_CTX_free(context);
    digest[6] = static_cast<unsigned char>((digest[6] & 0x0f) | 0x50);
    digest[8] = static_cast<unsigned char>((digest[8] & 0x3f) | 0x80);
    char text[64];
    std::snprintf(text, sizeof text,
                  "\\\\?\\Volume{%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x}\\", digest[0],
                  digest[1], digest[2], digest[3], digest[4], digest[5], digest[6], digest[7], digest[8], digest[9],
                  digest[10], digest[11], digest[12], digest[13], digest[14], digest[15]);
    return WStrFromUtf8(text);
}

std::string RealFolder(const std::string& folder) {
    char* real = realpath(folder.c_str(), nullptr);
    if (real == nullptr) return folder;
    std::string result = real;
    std::free(real);
    return result;
}

// Host folders at letters. A folder whose letter is taken away is remembered by its name, so that it can
// be given a letter again.
class HostFolderLetters : public VolumeLetters {
public:
    bool NameAt(WCHAR letter, WString& volumeName) override {
        const std::string folder = DriveRoot(letter);
        if (folder.empty()) return false;
        volumeName = HostFolderVolumeName(folder);
        std::lock_guard lock(lock_);
        known_[volumeName] = folder;
        return true;
    }
    bool Remove(WCHAR letter) override {
        // The system volume keeps its letter.
        if (letter == 'C') return Fail(ERROR_ACCESS_DENIED, false);
        UnmapDrive(letter);
        return true;
    }
    bool Knows(const WString& volumeName) override {
        std::lock_guard lock(lock_);
        return known_.count(volumeName) != 0;
    }
    bool Place(const WString& volumeName, WCHAR letter) override {
        std::string folder;
        {
            std::lock_guard lock(lock_);
            auto it = known_.find(volumeName);
            if (it == known_.end()) return Fail(ERROR_FILE_NOT_FOUND, false);
            folder = it->second;
        }
        // The folder may have gone meanwhile; then there is no volume to mount.
        if (!MapDrive(letter, folder)) return Fail(ERROR_FILE_NOT_FOUND, false);
        return true;
    }

private:
    std::mutex lock_;
    std::map<WString, std::string> known_;
};

HostFolderLetters g_hostFolderLetters;
const bool g_registered = (RegisterVolumeLetters(&g_hostFolderLetters, true), true);

}  // namespace

WString HostFolderVolumeName(const std::string& hostFolder) { return NameFromFolder(RealFolder(hostFolder)); }

}  // namespace vlx
