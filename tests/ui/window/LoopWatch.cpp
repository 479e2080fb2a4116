#include "tests/ui/window/LoopWatch.h"

#include <poll.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace window {
namespace {

using std::chrono::ceil;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kPause{3};
constexpr milliseconds kPatience{5000};

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};

/// A connection that pings one window.
class Pinger {
 public:
  explicit Pinger(xcb_window_t window) : connection_(xcb_connect(nullptr, nullptr)), window_(window) {
    if (xcb_connection_has_error(connection_.get()) != 0) throw std::runtime_error("no display");
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection_.get())).data->root;
    protocols_ = atom("WM_PROTOCOLS");
    ping_ = atom("_NET_WM_PING");
    // The toolkits do not agree on the kind of event that an answer is.
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection_.get(), root_, XCB_CW_EVENT_MASK, &events);
  }

  /// Answers whether the window did, in time.
  bool ping() {
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window_;
    message.type = protocols_;
    message.data.data32[0] = ping_;
    message.data.data32[1] = ++serial_;
    message.data.data32[2] = window_;
    xcb_send_event(connection_.get(), 0, window_, 0, reinterpret_cast<const char*>(&message));
    xcb_flush(connection_.get());
    return waitForAnswer(steady_clock::now() + kPatience);
  }

 private:
  struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
  };

  xcb_atom_t atom(std::string_view name) {
    const auto cookie =
        xcb_intern_atom(connection_.get(), 0, static_cast<std::uint16_t>(name.size()), name.data());
    const std::unique_ptr<xcb_intern_atom_reply_t, Free> reply(
        xcb_intern_atom_reply(connection_.get(), cookie, nullptr));
    if (!reply) throw std::runtime_error("no display");
    return reply->atom;
  }

  bool isAnswer(const xcb_generic_event_t& event) const {
    if ((event.response_type & 0x7FU) != XCB_CLIENT_MESSAGE) return false;
    const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(event);
    return message.window == root_ && message.data.data32[0] == ping_ && message.data.data32[1] == serial_;
  }

  bool waitForAnswer(steady_clock::time_point end) {
    while (steady_clock::now() < end) {
      while (const std::unique_ptr<xcb_generic_event_t, Free> event{xcb_poll_for_event(connection_.get())}) {
        if (isAnswer(*event)) return true;
      }
      if (xcb_connection_has_error(connection_.get()) != 0) return false;
      pollfd watched{xcb_get_file_descriptor(connection_.get()), POLLIN, 0};
      ::poll(&watched, 1, static_cast<int>(ceil<milliseconds>(end - steady_clock::now()).count()));
    }
    return false;
  }

  std::unique_ptr<xcb_connection_t, Disconnect> connection_;
  xcb_window_t window_;
  xcb_window_t root_ = 0;
  xcb_atom_t protocols_ = 0;
  xcb_atom_t ping_ = 0;
  std::uint32_t serial_ = 0;
};

}  // namespace

LoopWatch::LoopWatch(std::uint32_t window) {
  const auto pinger = std::make_shared<Pinger>(window);
  thread_ = std::thread([this, pinger] { watch([&] { return pinger->ping(); }); });
}

LoopWatch::~LoopWatch() {
  end();
}

void LoopWatch::watch(const std::function<bool()>& ping) {
  while (!isEnding_) {
    const auto start = steady_clock::now();
    if (ping()) ++findings_.answers;
    findings_.longest = std::max(findings_.longest, ceil<milliseconds>(steady_clock::now() - start));
    std::this_thread::sleep_for(kPause);
  }
}

LoopWatch::Findings LoopWatch::end() {
  isEnding_ = true;
  if (thread_.joinable()) thread_.join();
  return findings_;
}

}  // namespace window
