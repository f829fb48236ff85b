#include "platform/linux/system.h"

namespace linuxbk {

System::System(Options options)
    : map_(Sysfs(options.sysRoot), options.mountInfo), app_(map_, channel_, options.commandLine, options.title),
      profile_([this](const std::string& path) {
          return map_.ToNative(path).value_or(ProfileFiles::DefaultNativePath(path));
      }),
      events_(options.events ? std::make_unique<EventSources>(map_) : nullptr),
      console_(map_, channel_, events_.get()) {
    devices_.UseUdisks(options.useUdisks);
}

platform::Services System::Services(platform::WindowSystem* windows) {
    return {app_,     volumes_, profile_, windows != nullptr ? *windows : console_, shell_, volumes_, devices_,
            devices_, devices_, handles_};
}

} // namespace linuxbk
