#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/runtime/KeyValueObserver.h"
#include "platform/runtime/Observable.h"

namespace vexo::testing {

// Records the key paths it hears, in order.
class KeyPathRecorder : public runtime::KeyValueObserver {
public:
    void observe(runtime::Observable& object, const std::vector<std::string>& keyPaths) {
        m_object = &object;
        m_keyPaths = keyPaths;
        for (const auto& keyPath : keyPaths)
            object.addObserver(*this, keyPath, runtime::ObservingOptions::New);
    }
    ~KeyPathRecorder() override {
        if (m_object != nullptr) {
            for (const auto& keyPath : m_keyPaths)
                m_object->removeObserver(*this, keyPath);
        }
    }
    void observeValueForKeyPath(std::string_view keyPath, runtime::Observable&,
                                const runtime::KeyValueChange&) override {
        heard.emplace_back(keyPath);
    }
    std::vector<std::string> take() {
        auto result = std::move(heard);
        heard.clear();
        return result;
    }

    std::vector<std::string> heard;

private:
    runtime::Observable* m_object = nullptr;
    std::vector<std::string> m_keyPaths;
};

} // namespace vexo::testing
