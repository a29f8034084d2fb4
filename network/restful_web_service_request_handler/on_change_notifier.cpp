#include "network/restful_web_service_request_handler/on_change_notifier.h"

namespace ovtx::network::restful_web_service_request_handler::v0 {

namespace {

class NoSaver : public IOnChangeNotifier {
  public:
    void OnChange() override {}
};

}  // namespace

std::unique_ptr<IOnChangeNotifier> newNoSaver() {
    return std::make_unique<NoSaver>();
}

}  // namespace ovtx::network::restful_web_service_request_handler::v0
