#include "file/token_scoped_dir_io.h"

#include <cerrno>

#include "file/system_error.h"

namespace File {

namespace {

class TokenScopedDirIo final : public Platform::DirIo {
public:
    TokenScopedDirIo(SharedDirIo inner, std::shared_ptr<SubstToken> token)
        : inner_(std::move(inner)), token_(std::move(token)) {}

    Platform::SystemError OpenDir(Platform::DirHandle at, const std::string& name,
                                  Platform::DirHandle& dir) override {
        return Acting([&] { return inner_->OpenDir(at, name, dir); });
    }
    Platform::SystemError OpenFile(Platform::DirHandle at, const std::string& name,
                                   Platform::FileAccess access,
                                   Platform::FileDisposition disposition, bool followLinks,
                                   bool unbuffered, Platform::FileHandle& file) override {
        return Acting([&] {
            return inner_->OpenFile(at, name, access, disposition, followLinks, unbuffered, file);
        });
    }
    // Closing is not an access to the disk, and must not fail for want of a scope.
    Platform::SystemError CloseDir(Platform::DirHandle dir) override {
        return inner_->CloseDir(dir);
    }
    Platform::SystemError ReadEntries(Platform::DirHandle dir, void* buffer, std::size_t size,
                                      std::size_t& got) override {
        return Acting([&] { return inner_->ReadEntries(dir, buffer, size, got); });
    }
    Platform::SystemError Status(Platform::DirHandle at, const char* name, bool followLinks,
                                 Platform::EntryStatus& status) override {
        return Acting([&] { return inner_->Status(at, name, followLinks, status); });
    }
    Platform::SystemError ReadLink(Platform::DirHandle at, const std::string& name,
                                   std::string& target) override {
        return Acting([&] { return inner_->ReadLink(at, name, target); });
    }
    Platform::SystemError MakeDir(Platform::DirHandle at, const std::string& name,
                                  std::uint32_t mode) override {
        return Acting([&] { return inner_->MakeDir(at, name, mode); });
    }
    Platform::SystemError Unlink(Platform::DirHandle at, const std::string& name,
                                 bool directory) override {
        return Acting([&] { return inner_->Unlink(at, name, directory); });
    }
    Platform::SystemError Rename(Platform::DirHandle fromAt, const std::string& from,
                                 Platform::DirHandle toAt, const std::string& to) override {
        return Acting([&] { return inner_->Rename(fromAt, from, toAt, to); });
    }
    Platform::SystemError Link(Platform::DirHandle fromAt, const std::string& from,
                               Platform::DirHandle toAt, const std::string& to) override {
        return Acting([&] { return inner_->Link(fromAt, from, toAt, to); });
    }
    Platform::SystemError SymLink(const std::string& target, Platform::DirHandle at,
                                  const std::string& link) override {
        return Acting([&] { return inner_->SymLink(target, at, link); });
    }
    Platform::SystemError SetMode(Platform::DirHandle at, const std::string& name,
                                  std::uint32_t mode) override {
        return Acting([&] { return inner_->SetMode(at, name, mode); });
    }
    Platform::SystemError SetOwner(Platform::DirHandle at, const std::string& name,
                                   std::uint32_t user, std::uint32_t group) override {
        return Acting([&] { return inner_->SetOwner(at, name, user, group); });
    }
    Platform::SystemError MakeNode(Platform::DirHandle at, const std::string& name,
                                   std::uint32_t mode, std::uint64_t device) override {
        return Acting([&] { return inner_->MakeNode(at, name, mode, device); });
    }
    Platform::SystemError SetTimes(Platform::DirHandle at, const std::string& name,
                                   std::int64_t accessNs, std::int64_t writeNs) override {
        return Acting([&] { return inner_->SetTimes(at, name, accessNs, writeNs); });
    }
    Platform::SystemError SetCompression(Platform::DirHandle at, const std::string& name,
                                         bool on) override {
        return Acting([&] { return inner_->SetCompression(at, name, on); });
    }
    Platform::SystemError Space(Platform::DirHandle dir, Platform::VolumeSpace& space) override {
        return Acting([&] { return inner_->Space(dir, space); });
    }
    // The mount table and the well-known places are the process's, whoever asks.
    Platform::SystemError ReadMountTable(std::string& text) override {
        return inner_->ReadMountTable(text);
    }
    Platform::SystemError PlacePath(Platform::SpecialPlace place, std::string& path) override {
        return inner_->PlacePath(place, path);
    }

private:
    // Runs `call` as the token's user. When the scope cannot be entered the call is not
    // made, and its failure is the system's reason for the refusal, so that the caller
    // reports it as it reports its own call failing.
    template <class Call>
    Platform::SystemError Acting(Call&& call) {
        Common::Error entered;
        const TokenSubstitutionExecutor scope(token_, entered);
        if (entered.Failed()) {
            const Platform::SystemError reason = SystemReasonOf(entered);
            // A refusal without a reason still refuses: access denied.
            return reason.Failed() ? reason : Platform::SystemError{5, EPERM};
        }
        return call();
    }

    SharedDirIo inner_;
    std::shared_ptr<SubstToken> token_;
};

}  // namespace

SharedDirIo Unowned(Platform::DirIo& io) {
    return SharedDirIo(SharedDirIo(), &io);
}

SharedDirIo ActingAs(SharedDirIo inner, std::shared_ptr<SubstToken> token) {
    if (!token) {
        return inner;
    }
    return std::make_shared<TokenScopedDirIo>(std::move(inner), std::move(token));
}

}  // namespace File
