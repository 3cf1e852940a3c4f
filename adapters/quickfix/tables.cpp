#include "adapters/quickfix/tables.h"

#include <exception>
#include <string>

#include <quickfix/Exceptions.h>

namespace tabulo {
namespace quickfix {

namespace {

std::string settingOf(const FIX::Dictionary& settings, const char* name) {
    return settings.has(name) ? settings.getString(name) : std::string();
}

}  // namespace

std::shared_ptr<SessionStore> Tables::of(const FIX::SessionID& session) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::weak_ptr<SessionStore>& known = open_[session];
    if (std::shared_ptr<SessionStore> open = known.lock()) {
        return open;
    }
    const FIX::Dictionary settings = settings_.get(session);
    try {
        SettingTexts texts;
        texts.storePath = settingOf(settings, "TabuloStorePath");
        texts.stringFields = settingOf(settings, "TabuloStringFields");
        texts.numericFields = settingOf(settings, "TabuloNumericFields");
        texts.logHeartbeats = settingOf(settings, "TabuloLogHeartbeats");
        texts.sync = settingOf(settings, "TabuloSync");
        texts.roll = settingOf(settings, "TabuloRoll");
        const SessionName name = {session.getBeginString().getString(), session.getSenderCompID().getString(),
                                  session.getTargetCompID().getString(), session.getSessionQualifier()};
        std::shared_ptr<SessionStore> made = std::make_shared<SessionStore>(storeSettingsOf(texts), name);
        known = made;
        return made;
    } catch (const std::exception& error) {
        throw FIX::ConfigError(session.toString() + ": " + error.what());
    }
}

}  // namespace quickfix
}  // namespace tabulo
