#include "serve_archives.h"

#include <tessel_link/common/unicode.h>

namespace tessel_cli {

namespace {

// The example's own codes, with the customer bit set so that they never meet the library's.
constexpr std::uint32_t kErrorNoSuchArchive = 0x20000011;
constexpr std::uint32_t kErrorWrongPassword = 0x20000012;
constexpr std::uint32_t kErrorArchiveExists = 0x20000013;

Common::Error Failure(const char* where, std::uint32_t code, const std::u16string& uri, const char* what) {
    const std::string text = std::string(what) + ": " + Common::Utf16ToUtf8(uri);
    return Common::Error(TL_ORIGIN(where), code, text.c_str());
}

}  // namespace

Common::Error InMemoryArchiveManager::Find(const std::u16string& uri, const AccessManagement::Logon& logon,
                                           const Stored*& found) const {
    const auto at = archives_.find(uri);
    if (at == archives_.end()) {
        return Failure("InMemoryArchiveManager::Find", kErrorNoSuchArchive, uri, "no such archive");
    }
    if (at->second.Password != logon.Password()) {
        return Failure("InMemoryArchiveManager::Find", kErrorWrongPassword, uri, "wrong password for");
    }
    found = &at->second;
    return Common::ErrorSuccess;
}

Common::Error InMemoryArchiveManager::GetArchivesUri(const std::u16string& locationUri,
                                                     const AccessManagement::Logon&,
                                                     const ArchiveManagement::ArchiveFilter&,
                                                     std::vector<std::u16string>& archivesUri) {
    const std::lock_guard<std::mutex> lock(lock_);
    archivesUri.clear();
    const std::u16string prefix = locationUri + u"/";
    for (const auto& [uri, stored] : archives_) {
        if (uri.compare(0, prefix.size(), prefix) == 0) {
            archivesUri.push_back(uri);
        }
    }
    return Common::ErrorSuccess;
}

Common::Error InMemoryArchiveManager::GetArchivesInfo(const std::vector<std::u16string>& archivesUri,
                                                      const AccessManagement::Logon& locationCredential,
                                                      std::vector<ArchiveManagement::ArchiveInfo>& archivesInfo) {
    const std::lock_guard<std::mutex> lock(lock_);
    archivesInfo.clear();
    for (const std::u16string& uri : archivesUri) {
        const Stored* stored = nullptr;
        if (Common::Error error = Find(uri, locationCredential, stored); error.Failed()) {
            return error;
        }
        archivesInfo.push_back(stored->Info);
    }
    return Common::ErrorSuccess;
}

Common::Error InMemoryArchiveManager::Validate(const std::vector<std::u16string>& targets,
                                               const std::u16string& archivePassword,
                                               const AccessManagement::Logon& locationCredential) {
    const std::lock_guard<std::mutex> lock(lock_);
    for (const std::u16string& uri : targets) {
        const Stored* stored = nullptr;
        if (Common::Error error = Find(uri, locationCredential, stored); error.Failed()) {
            return error;
        }
        if (stored->Info.Settings.ProtectedByPassword && archivePassword != stored->Password) {
            return Failure("InMemoryArchiveManager::Validate", kErrorWrongPassword, uri, "wrong archive password for");
        }
    }
    return Common::ErrorSuccess;
}

Common::Error InMemoryArchiveManager::FindArchive(const std::u16string& locationUri, const std::u16string& archive,
                                                  const AccessManagement::Logon& locationCredential,
                                                  ArchiveManagement::ArchiveInfo& archiveInfo) {
    const std::lock_guard<std::mutex> lock(lock_);
    const Stored* stored = nullptr;
    if (Common::Error error = Find(locationUri + u"/" + archive, locationCredential, stored); error.Failed()) {
        return error;
    }
    archiveInfo = stored->Info;
    return Common::ErrorSuccess;
}

Common::Error InMemoryArchiveManager::CreateArchive2(const std::u16string& locationUri,
                                                     const AccessManagement::Logon& locationCredential,
                                                     std::uint32_t type,
                                                     const ArchiveManagement::ArchiveSettings& settings,
                                                     const Core::Optional<ArchiveManagement::ArchiveSecurity>& security,
                                                     std::u16string& archiveUri) {
    const std::lock_guard<std::mutex> lock(lock_);
    const std::u16string uri = locationUri + u"/" + settings.Name;
    if (archives_.count(uri) != 0) {
        return Failure("InMemoryArchiveManager::CreateArchive2", kErrorArchiveExists, uri, "already exists");
    }
    Stored stored;
    stored.Info.ArchiveUri = uri;
    stored.Info.Type = type;
    stored.Info.Settings = settings;
    if (!security.IsNull()) {
        stored.Info.OwnerID = security.Get().OwnerID;
        stored.Info.OwnerName = security.Get().OwnerName;
        stored.Info.MachineName = security.Get().MachineName;
    }
    stored.Password = locationCredential.Password();
    archives_.emplace(uri, std::move(stored));
    archiveUri = uri;
    return Common::ErrorSuccess;
}

}  // namespace tessel_cli
