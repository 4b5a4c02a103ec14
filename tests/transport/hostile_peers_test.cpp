/*
 * send_request against peers that misbehave: cut bodies, huge replies,
 * floods of header lines, lines without an end, malformed dates, endless
 * refusals and replies that are not HTTP. Each must end in a defined result
 * code with `out` as the contract says; the sanitizer and valgrind runs of
 * this program check that nothing leaks or reads astray meanwhile.
 */
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "capture_stdout.h"
#include "loopback_server.h"
#include "velmora/transport.h"

namespace {

std::string refusal(const std::string &extra_headers) {
  return "HTTP/1.1 401 Unauthorized\r\nContent-Length: 6\r\n" + extra_headers +
         "\r\nrefuse";
}

std::string ok(const std::string &body) {
  return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}

const std::string untouched = "caller's own text";

struct outcome {
  int result;
  std::string out;
  std::string printed;
  int64_t clock_shift;
  int attempts;
};

/* One signed call against a peer giving `replies`. */
outcome call(const std::vector<std::string> &replies) {
  LoopbackServer peer(replies);
  client_context_s *context = client_context_new();
  client_context_set_port(context, peer.port());
  client_context_set_user(context, "alice");
  client_context_set_password(context, "secret");
  outcome o{0, untouched, "", 0, 0};
  o.printed = capture_stdout(
      [&] { o.result = send_request(context, "/op", "{\"a\":1}", &o.out); });
  o.clock_shift = context->clock_offset;
  client_context_free(context);
  o.attempts = static_cast<int>(peer.request_count());
  return o;
}

TEST(HostilePeer, ClosesInTheMiddleOfTheBody) {
  const std::string cut_length =
      "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n" + std::string(10, 'x');
  const std::string cut_chunk = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked"
                                "\r\n\r\n400\r\n" +
                                std::string(100, 'x');
  for (const std::string &reply : {cut_length, cut_chunk}) {
    const outcome o = call({reply});
    EXPECT_EQ(o.result, -2);
    EXPECT_EQ(o.out, untouched);
    EXPECT_EQ(o.printed.rfind("Error: [18] - ", 0), 0u) << o.printed;
  }
}

TEST(HostilePeer, RefusalCutInTheMiddleOfItsBodyIsStillARefusal) {
  const outcome o =
      call({"HTTP/1.1 401 Unauthorized\r\nContent-Length: 500\r\n\r\nshort"});
  EXPECT_EQ(o.result, -3);
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.printed, "");
}

TEST(HostilePeer, TenMegabyteBodyArrivesWhole) {
  std::string body(10 << 20, '\0');
  for (size_t i = 0; i < body.size(); ++i)
    body[i] = static_cast<char>(i * 131 + (i >> 12));
  outcome o = call({ok(body)});
  EXPECT_EQ(o.result, 0);
  EXPECT_TRUE(o.out == body) << "got " << o.out.size() << " bytes";

  o = call({"HTTP/1.1 500 Oops\r\nContent-Length: " +
            std::to_string(body.size()) + "\r\n\r\n" + body});
  EXPECT_EQ(o.result, -1);
  EXPECT_TRUE(o.out == body);
}

std::string filler_lines(int count) {
  std::string lines;
  for (int i = 0; i < count; ++i)
    lines += "X-Filler-" + std::to_string(i) + ": date: auth_error: 2\r\n";
  return lines;
}

TEST(HostilePeer, ThousandsOfHeaderLines) {
  const std::string many = "HTTP/1.1 200 OK\r\n" + filler_lines(4000) +
                           "Content-Length: 2\r\n\r\nok";
  outcome o = call({many});
  EXPECT_EQ(o.result, 0);
  EXPECT_EQ(o.out, "ok");

  /* The lookups find the first occurrence of a name, wherever it is: here
   * inside the filler, which says 2, so the refusal stands. */
  o = call({refusal(filler_lines(4000) +
                    "auth_error: 1\r\nDate: " + date_in_an_hour() + "\r\n")});
  EXPECT_EQ(o.result, -3);
  EXPECT_EQ(o.attempts, 1);
  EXPECT_EQ(o.clock_shift, 0);

  /* Beyond what the transfer library accepts, the transfer fails. */
  o = call({"HTTP/1.1 200 OK\r\n" + filler_lines(20000) +
            "Content-Length: 2\r\n\r\nok"});
  EXPECT_EQ(o.result, -2);
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.printed.rfind("Error: [", 0), 0u) << o.printed.substr(0, 80);
}

TEST(HostilePeer, HeaderLineWithoutLineEnd) {
  /* A success whose header block never ends is a failed transfer. */
  outcome o = call({"HTTP/1.1 200 OK\r\nContent-Length: 2\r\nX-Cut: abc"});
  EXPECT_EQ(o.result, -2);
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.printed.rfind("Error: [", 0), 0u) << o.printed;

  /* A refusal whose "Date:" line never ends carries no usable date. */
  o = call({"HTTP/1.1 401 Unauthorized\r\nauth_error: 1\r\nDate: " +
            date_in_an_hour()});
  EXPECT_EQ(o.result, -3);
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.clock_shift, 0);
  EXPECT_EQ(o.attempts, 1);
}

TEST(HostilePeer, DateWithTrailingGarbageStillResynchronises) {
  const outcome o =
      call({refusal("auth_error: 1\r\nDate: " + date_in_an_hour() +
                    " and then some \x01\x7f garbage\r\n"),
            ok("second")});
  EXPECT_EQ(o.result, 0);
  EXPECT_EQ(o.out, "second");
  EXPECT_EQ(o.attempts, 2);
  EXPECT_NE(o.clock_shift, 0);
}

TEST(HostilePeer, MalformedDatesAfterAuthErrorAreRejected) {
  const std::string malformed[] = {
      "",
      "     ",
      "\t",
      "garbage",
      "1704103200",
      "Mon, 01 Jan 2024",
      "Mon, 01 Jan 2024 10:00",
      "Mon, 32 Jan 2024 10:00:00 GMT",
      "Mon, 00 Jan 2024 10:00:00 GMT",
      "Mon, 01 Foo 2024 10:00:00 GMT",
      "Mon, 01 Jan 2024 24:00:00 GMT",
      "Mon, 01 Jan 2024 10:60:00 GMT",
      "Mon, 01 Jan 2024 10:00:62 GMT",
      "Mon, 01 Jan 99999 10:00:00 GMT",
      "Mon, 01 Jan -2024 10:00:00 GMT",
      "Xyz, 01 Jan 2024 10:00:00 GMT",
      "Mon 01 Jan 2024 10:00:00 GMT",
      "Mon, 01 Jan 2024 10-00-00 GMT",
      "2024-01-01T10:00:00Z",
      std::string(65536, 'A'),
  };
  /* With a bare line feed the value is empty or only spaces, with no
   * carriage return left to make it a text that merely fails to parse. */
  for (const char *line_end : {"\r\n", "\n"})
    for (const std::string &date : malformed) {
      const outcome o =
          call({refusal("auth_error: 1\r\nDate:" + date + line_end)});
      EXPECT_EQ(o.result, -2) << date.substr(0, 40);
      EXPECT_EQ(o.out, untouched);
      EXPECT_EQ(o.clock_shift, 0);
      EXPECT_EQ(o.attempts, 1);
      EXPECT_EQ(o.printed, "");
    }
}

TEST(HostilePeer, DateHoldingANulByteIsRejected) {
  /* Whether the peer's line reaches the lookup whole or not at all, the
   * date is unusable: a refusal, with the clock left alone. */
  const outcome o = call(
      {refusal("auth_error: 1\r\n" +
               std::string("Date: Mon, 01 Jan\0 2024 10:00:00 GMT\r\n", 38))});
  EXPECT_TRUE(o.result == -2 || o.result == -3) << o.result;
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.clock_shift, 0);
  EXPECT_EQ(o.attempts, 1);
}

TEST(HostilePeer, OddButParsableDatesMoveTheClockAndRetry) {
  const std::string odd[] = {
      "Mon, 01 Jan 0000 00:00:00 GMT",
      "Fri, 31 Dec 9999 23:59:59 GMT",
      "Sun, 29 Feb 2032 12:00:00 XYZ",
      "   Mon, 01 Jan 2024 10:00:00 GMT   ",
  };
  for (const std::string &date : odd) {
    const outcome o =
        call({refusal("auth_error: 1\r\nDate: " + date + "\r\n"), ok("again")});
    EXPECT_EQ(o.result, 0) << date;
    EXPECT_EQ(o.out, "again");
    EXPECT_EQ(o.attempts, 2);
    EXPECT_NE(o.clock_shift, 0) << date;
  }
}

TEST(HostilePeer, AuthErrorValues) {
  const struct {
    const char *value;
    int result;
    int attempts;
  } cases[] = {
      {"1", 0, 2},    {" 01", 0, 2},
      {"+1", 0, 2},   {"1abc", 0, 2},
      {"", -3, 1},    {"2", -3, 1},
      {"-1", -3, 1},  {"0x1", -3, 1},
      {"abc", -3, 1}, {"99999999999999999999999", -3, 1},
  };
  for (const auto &c : cases) {
    const outcome o = call({refusal(std::string("auth_error:") + c.value +
                                    "\r\nDate: " + date_in_an_hour() + "\r\n"),
                            ok("fine")});
    EXPECT_EQ(o.result, c.result) << c.value;
    EXPECT_EQ(o.attempts, c.attempts) << c.value;
    EXPECT_EQ(o.out, c.result == 0 ? "fine" : untouched) << c.value;
  }
}

TEST(HostilePeer, RefusesForeverWithAuthError) {
  const outcome o =
      call({refusal("auth_error: 1\r\nDate: " + date_in_an_hour() + "\r\n")});
  EXPECT_EQ(o.result, -3);
  EXPECT_EQ(o.attempts, 3);
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.printed, "");
}

TEST(HostilePeer, StatusLineThatIsNotHttp) {
  const std::string replies[] = {
      "SSH-2.0-OpenSSH_9.2p1 Debian-2\r\n",
      "garbage without any line end",
      std::string("\0\x01\x02\xff\r\n\r\n", 8),
      "HTTP/1.1 abc Strange\r\nContent-Length: 0\r\n\r\n",
      "HTTP/1.1\r\n\r\n",
      "HTTP/9.9 200 OK\r\n\r\n",
      "ICY 200 OK\r\n\r\nstream",
  };
  for (const std::string &reply : replies) {
    const outcome o = call({reply});
    EXPECT_EQ(o.result, -2) << reply;
    EXPECT_EQ(o.out, untouched);
    EXPECT_EQ(o.printed.rfind("Error: [", 0), 0u) << o.printed;
  }
}

TEST(HostilePeer, SilentCloseAndEmptyReply) {
  const outcome o = call({""});
  EXPECT_EQ(o.result, -2);
  EXPECT_EQ(o.out, untouched);
  EXPECT_EQ(o.printed.rfind("Error: [52] - ", 0), 0u) << o.printed;
}

TEST(HostilePeer, UnusualStatusesDeliverTheBody) {
  const struct {
    std::string reply;
    int result;
  } cases[] = {
      {"HTTP/1.1 999 Whatever\r\nContent-Length: 4\r\n\r\nbody", -1},
      {"HTTP/1.1 204 No Content\r\n\r\n", -1},
      {"HTTP/1.0 200 OK\r\n\r\nuntil the close", 0},
  };
  for (const auto &c : cases) {
    const outcome o = call({c.reply});
    EXPECT_EQ(o.result, c.result) << c.reply;
    EXPECT_EQ(o.out, c.reply.substr(c.reply.find("\r\n\r\n") + 4));
  }
}

} // namespace
