// MACDEP and the messages to a host.
#include "engine/host.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "engine/commands.h"
#include "engine/files.h"
#include "engine/host_state.h"
#include "engine/output.h"
#include "engine/run.h"
#include "platform/signals.h"

namespace korvel {

HostState HOST;

namespace {

// Message numbers by code. Actions that KORVEL has no use for stand here too: they are part of what
// a host may rely on.
struct HostMessage {
  int code;
  std::int32_t number;
};
constexpr std::array<HostMessage, 11> MESSAGES = {{{M_FLUSH, 1174},
                                                   {M_LINE, 1224},
                                                   {16, 1274},
                                                   {17, 1324},
                                                   {18, 1324},
                                                   {19, 1284},
                                                   {M_TEXT, 1384},
                                                   {M_QUERY, 1374},
                                                   {33, 1394},
                                                   {M_BREAK, 1474},
                                                   {M_CONTINUE, 1478}}};
constexpr std::int32_t PRINTED_LINE = 1124;
constexpr std::size_t MESSAGE_ROOM = 1024;
constexpr int FLUSH_BLOCK = 131;

std::int32_t send(std::int32_t number, std::int32_t length, char* text) {
  return HOST.record->SendMsg(HOST.record->window, number, length, text);
}

// A line of a dump, printed while a block of lines may be under way.
void dump_line(std::string_view text) {
  if (IOCOM.O6) {
    main_output().line(text);
  } else {
    send_line(text);
  }
}

void send_text(int code, std::string_view text) {
  std::string buffer(text);
  MACDEP(code, {buffer.data(), buffer.size() + 1}, static_cast<int>(text.size()));
}

// Asks; the answer without its trailing blanks.
std::string ask_host(std::string_view key) {
  std::string buffer(KORVEL_QUERY_ROOM + 1, ' ');
  buffer.replace(0, key.size(), key);
  const int n = MACDEP(M_QUERY, buffer, static_cast<int>(key.size()));
  return std::string(
      right_trimmed(std::string_view(buffer).substr(0, static_cast<std::size_t>(n))));
}

}  // namespace

int MACDEP(int code, std::span<char> buffer, int length) {
  if (code > M_LAST) {
    error_line(" ...ERROR.ILLEGAL IND IN MACDEP");
    XXIT(code);
    return 0;
  }
  const auto* message = std::ranges::find(MESSAGES, code, &HostMessage::code);
  if (!on_host() || message == MESSAGES.end()) return 0;
  if (OSCOM.ODMMP && code == M_BREAK) dump_line(" BREAKPOINTREACHED:");
  if (OSCOM.ODMMP && code == M_CONTINUE) dump_line(" BREAKCONTINUE:");
  const bool asks = code == M_LINE || code == M_QUERY;
  const auto room = static_cast<std::int32_t>(buffer.size()) - 1;  // the last character is a NUL
  if (asks) std::fill(buffer.begin() + length, buffer.end(), ' ');
  if (code == M_LINE) length = room;  // all of it is the answer's
  buffer[static_cast<std::size_t>(length)] = '\0';
  const std::int32_t n = send(message->number, length, buffer.data());
  if (!asks) return 0;
  const int taken = std::clamp(n, -1, room);
  std::fill(buffer.begin() + std::max(taken, 0), buffer.end(), ' ');
  return code == M_QUERY ? std::max(taken, 0) : taken;
}

void send_line(std::string_view line) {
  // Every character may be one of a pair that grows.
  std::array<char, LINELEN * 2 + 1> text;
  std::size_t n = 0;
  line = line.substr(0, LINELEN);
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '/') text[n++] = '\\';
    text[n++] = line[i];
  }
  text[n] = '\0';
  send(PRINTED_LINE, static_cast<std::int32_t>(n), text.data());
}

void tell_host(std::string_view key, std::string_view value) {
  if (!on_host()) return;
  std::string text;
  text.reserve(MESSAGE_ROOM);
  text += key;
  text += value;
  send_text(M_TEXT, text);
}

void tell_host(std::string_view key, std::int64_t value) { tell_host(key, std::to_string(value)); }

void flush_host() {
  if (on_host()) send_text(M_FLUSH, std::string(FLUSH_BLOCK, ' '));
}

void break_on_host() {
  tell_host("FLUSH_BUFFER");
  tell_host("MSG_INFO=BREAKPOINT");
  send_text(M_BREAK, {});
  send_text(M_CONTINUE, {});
}

bool register_host(KORVELHOST* record) {
  const bool known = record == nullptr || (record->version == KORVEL_HOST_VERSION &&
                                           record->size >= static_cast<int>(sizeof(KORVELHOST)) &&
                                           record->SendMsg != nullptr);
  if (!known) return false;
  HOST = {};
  HOST.record = record;
  watch_stop(record == nullptr ? nullptr : &record->stop);
  return true;
}

bool host_registered() { return HOST.record != nullptr; }

void tell_start() {
  tell_host("SET_VERSION=11.0");
  tell_host("SET_PAR=", std::int64_t{ADDCOM.MAXADD});
  tell_host("SET_SIZE=", std::int64_t{DATCOM.MAXVAR});
}

void ask_before_reset() {
  // A window that closes: the host says whether others are open ("Multiple"). The engine has one
  // state for all of them, which is emptied in any case.
  if (MACOM.MOS == 33 && std::string_view(INPCOM.COMWRD) == "CLOSE   ") ask_host("GET_WINSTATE=");
}

void close_host(Workspace ws) {
  std::memcpy(INPCOM.COMWRD, "CLOSE   ", KEYLEN);
  RESET(ws);
  tell_host("FLUSH_BUFFER");
}

}  // namespace korvel
