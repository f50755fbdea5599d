#pragma once

// Volumes that are journal images held in memory, which a test may replace between two
// reads, and whose calls can be made to fail or to answer bytes of the test's choosing.

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/journal_image.h"
#include "platform/volume_control.h"

namespace test_support {

class FakeVolumeControl final : public Platform::VolumeControl {
public:
    enum class Call { VolumeName, Open, Control };

    // The next call of that kind fails with `failure`.
    void FailNext(Call call, Platform::SystemError failure) { failures_[call] = failure; }

    // Replaces the image's answer to the next control call with `answer` (truncated to the
    // output's size).
    void AnswerNext(std::vector<unsigned char> answer) { answer_ = std::move(answer); }

    std::map<std::u16string, std::vector<unsigned char>> images;
    int open = 0;
    int controls = 0;

    Platform::SystemError VolumeNameOf(const std::u16string& path,
                                       std::u16string& volume) override {
        if (auto f = Take(Call::VolumeName)) {
            return *f;
        }
        volume = path + u'\\';
        return {};
    }
    Platform::SystemError Open(const std::u16string& volume,
                               Platform::VolumeHandle& handle) override {
        if (auto f = Take(Call::Open)) {
            return *f;
        }
        if (images.count(volume) == 0) {
            return {2, 2};
        }
        paths_.push_back(volume);
        handle = static_cast<Platform::VolumeHandle>(paths_.size());
        ++open;
        return {};
    }
    Platform::SystemError Close(Platform::VolumeHandle) override {
        --open;
        return {};
    }
    Platform::SystemError Control(Platform::VolumeHandle handle, std::uint32_t code,
                                  const void* input, std::size_t inputSize, void* output,
                                  std::size_t outputSize, std::size_t& returned) override {
        ++controls;
        if (auto f = Take(Call::Control)) {
            return *f;
        }
        if (answer_) {
            returned = std::min(outputSize, answer_->size());
            std::memcpy(output, answer_->data(), returned);
            answer_.reset();
            return {};
        }
        const auto& image = images.at(paths_.at(static_cast<std::size_t>(handle) - 1));
        return Platform::AnswerJournalControl(image, code, input, inputSize, output, outputSize,
                                              returned);
    }

private:
    std::optional<Platform::SystemError> Take(Call call) {
        const auto it = failures_.find(call);
        if (it == failures_.end()) {
            return std::nullopt;
        }
        const Platform::SystemError f = it->second;
        failures_.erase(it);
        return f;
    }

    std::map<Call, Platform::SystemError> failures_;
    std::optional<std::vector<unsigned char>> answer_;
    std::vector<std::u16string> paths_;
};

}  // namespace test_support
