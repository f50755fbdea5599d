#pragma once

// An archive manager for `tessel serve` that keeps its archives in memory: enough of the
// interface to show every form an argument takes over a connection (logons, obscured
// passwords, optionals, records within records, containers of records).

#include <map>
#include <mutex>
#include <string>

#include <tessel_link/components/archive_management.h>

namespace tessel_cli {

class InMemoryArchiveManager final : public ArchiveManagement::ArchiveManager_Unimplemented {
public:
    // Lists the archives at a location.
    Common::Error GetArchivesUri(const std::u16string& locationUri, const AccessManagement::Logon& locationCredential,
                                 const ArchiveManagement::ArchiveFilter& filter,
                                 std::vector<std::u16string>& archivesUri) override;
    Common::Error GetArchivesInfo(const std::vector<std::u16string>& archivesUri,
                                  const AccessManagement::Logon& locationCredential,
                                  std::vector<ArchiveManagement::ArchiveInfo>& archivesInfo) override;
    // Checks the archives' password.
    Common::Error Validate(const std::vector<std::u16string>& targets, const std::u16string& archivePassword,
                           const AccessManagement::Logon& locationCredential) override;
    Common::Error FindArchive(const std::u16string& locationUri, const std::u16string& archive,
                              const AccessManagement::Logon& locationCredential,
                              ArchiveManagement::ArchiveInfo& archiveInfo) override;
    // Makes "LOCATION/NAME" for the settings' name, owned by the security's owner when given;
    // the archive is kept under the logon's password.
    Common::Error CreateArchive2(const std::u16string& locationUri, const AccessManagement::Logon& locationCredential,
                                 std::uint32_t type, const ArchiveManagement::ArchiveSettings& settings,
                                 const Core::Optional<ArchiveManagement::ArchiveSecurity>& security,
                                 std::u16string& archiveUri) override;

private:
    struct Stored {
        ArchiveManagement::ArchiveInfo Info;
        std::u16string Password;
    };
    Common::Error Find(const std::u16string& uri, const AccessManagement::Logon& logon, const Stored*& found) const;

    mutable std::mutex lock_;
    std::map<std::u16string, Stored> archives_;
};

}  // namespace tessel_cli
