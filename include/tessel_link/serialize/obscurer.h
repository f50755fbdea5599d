#pragma once

// Secrets in records (passwords, tickets, logons) never travel as plain text: generated codecs
// pass them through an Obscurer just before writing and just after reading. The default one
// is a fixed, symmetrical masking with a built-in key: it keeps secrets out of logs and casual
// view, and is no more than that.

#include <memory>
#include <string>
#include <vector>

#include <tessel_link/export.h>

namespace Serialization {

// Masks secrets before they are written and unmasks them once read.
class TL_API Obscurer {
public:
    virtual ~Obscurer();
    // The masked form of `text`.
    virtual std::u16string Obscure(const std::u16string& text) const = 0;
    // Never fails: any text that cannot be unobscured gives the empty string.
    virtual std::u16string Unobscure(const std::u16string& text) const = 0;
    // The masked form of `bytes`.
    virtual std::vector<unsigned char> ObscureBytes(
        const std::vector<unsigned char>& bytes) const = 0;
    // The bytes behind a masked form.
    virtual std::vector<unsigned char> UnobscureBytes(
        const std::vector<unsigned char>& bytes) const = 0;
};

// The default obscurer. It has no state, so one object serves all threads.
TL_API std::unique_ptr<Obscurer> CreateBlowfishObscurer();

// Where codecs find the obscurer: the one a thread has installed for itself, else the
// process-wide default. The library itself never installs one; the slot is for hosts.
class TL_API ObscurerHolder {
public:
    static ObscurerHolder& Instance();  // the one holder of the process

    const Obscurer& Get() const;  // the obscurer in force on the calling thread
    // Installs `obscurer` for the calling thread only, without taking ownership; it must stay
    // alive while installed. Null goes back to the default. Returns the one installed before.
    const Obscurer* SetThreadObscurer(const Obscurer* obscurer);

private:
    ObscurerHolder();
    std::unique_ptr<Obscurer> default_;
};

// The obscurer in force on the calling thread, applied.
TL_API std::u16string Obscure(const std::u16string& text);
// Masks `bytes`.
TL_API std::vector<unsigned char> ObscureBytes(const std::vector<unsigned char>& bytes);
TL_API std::u16string Unobscure(const std::u16string& text);  // unmasks `text`; "" when it cannot

}  // namespace Serialization
