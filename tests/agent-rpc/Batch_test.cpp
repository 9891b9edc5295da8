// What a batch of updates, or of queries, is answered with.
#include "agent/rpc/Status.h"
#include "tests/agent-rpc/Rpc.h"

namespace RpcTest {
namespace {

struct Batch : testing::Test {
  Served served;
  std::unique_ptr<p4::v1::P4Runtime::Stub> stub = served.client();
  Stream primary{*stub, stating(1)};

  grpc::Status writing(FakeTarget::WriteResult result) {
    served.target.onWrite = [&](const p4::v1::WriteRequest&, Agent::LoopGate::Deadline) {
      return result;
    };
    return write(*stub, writeAs(1));
  }
};

TEST_F(Batch, WithoutAFaultIsOkAndNothingElse) {
  const grpc::Status status = writing({grpc::Status::OK, {p4::v1::Error{}, p4::v1::Error{}}});
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(status.error_details(), "");
}

TEST_F(Batch, RefusedAsAWholeHasATextAndNoDetails) {
  const grpc::Status status = writing({{StatusCode::UNIMPLEMENTED, "atomicity: not offered"}, {}});
  EXPECT_EQ(status.error_code(), StatusCode::UNIMPLEMENTED);
  EXPECT_EQ(status.error_message(), "atomicity: not offered");
  EXPECT_EQ(status.error_details(), "");
}

TEST_F(Batch, WithAFaultHasOneErrorPerUpdateInOrder) {
  const grpc::Status status =
      writing({grpc::Status::OK,
               {p4::v1::Error{}, error(StatusCode::NOT_FOUND, "member 7"), p4::v1::Error{},
                error(StatusCode::ALREADY_EXISTS, "here")}});
  EXPECT_EQ(status.error_code(), StatusCode::UNKNOWN);
  const auto errors = errorsOf(status);
  ASSERT_EQ(errors.size(), 4u);
  EXPECT_EQ(errors[0].ByteSizeLong(), 0u) << "a good one says nothing";
  EXPECT_EQ(errors[1].canonical_code(), StatusCode::NOT_FOUND);
  EXPECT_EQ(errors[1].message(), "member 7");
  EXPECT_EQ(errors[2].ByteSizeLong(), 0u);
  EXPECT_EQ(errors[3].canonical_code(), StatusCode::ALREADY_EXISTS);
}

TEST_F(Batch, ErrorsOfAHundredUpdatesFitWhatClientsTake) {
  const std::vector<p4::v1::Error> many(100, error(StatusCode::NOT_FOUND, "not there"));
  EXPECT_EQ(errorsOf(writing({grpc::Status::OK, many})).size(), 100u);
}

TEST_F(Batch, RawBytesInTextsAreEscaped) {
  const grpc::Status status =
      writing({grpc::Status::OK, {error(StatusCode::INVALID_ARGUMENT, "found \xc3\x28 \xc3\xa9")}});
  EXPECT_EQ(errorsOf(status).at(0).message(), "found \\xc3( \xc3\xa9");
}

TEST_F(Batch, ATextThatIsTooLongForAStatusReachesTheClientWithoutItsEnd) {
  std::string text = "x";
  while (text.size() < 100'000) text += "\xc3\xa9";
  const grpc::Status whole = writing({{StatusCode::UNIMPLEMENTED, text}, {}});
  EXPECT_EQ(whole.error_code(), StatusCode::UNIMPLEMENTED);
  // 1,021 bytes are one x and 510 whole characters; "..." makes 1,024.
  EXPECT_EQ(whole.error_message(), text.substr(0, 1021) + "...");
  const auto errors = errorsOf(writing({grpc::Status::OK, {error(StatusCode::NOT_FOUND, text)}}));
  EXPECT_EQ(errors.at(0).message(), whole.error_message());
}

TEST_F(Batch, AFailureOfTheAgentsOwnIsInternalAndHarmsNoOtherCall) {
  served.target.onWrite = [](const p4::v1::WriteRequest&,
                             Agent::LoopGate::Deadline) -> FakeTarget::WriteResult {
    throw std::runtime_error("out of luck");
  };
  EXPECT_EQ(writes(*stub, 1), StatusCode::INTERNAL);
  served.target.onWrite = nullptr;
  EXPECT_EQ(writes(*stub, 1), StatusCode::OK);
}

TEST_F(Batch, OfQueriesIsAnsweredInPartsThatEndWithItsErrors) {
  served.target.onRead = [](const p4::v1::ReadRequest&, const FakeTarget::Send& send) {
    for (int i = 1; i <= 3; ++i) {
      p4::v1::ReadResponse part;
      part.add_entities()->mutable_table_entry()->set_priority(i);
      EXPECT_TRUE(send(part));
    }
    return FakeTarget::WriteResult{grpc::Status::OK,
                                   {p4::v1::Error{}, error(StatusCode::INVALID_ARGUMENT, "no")}};
  };
  std::vector<p4::v1::ReadResponse> parts;
  const grpc::Status status = read(*stub, readOf(), &parts);
  ASSERT_EQ(parts.size(), 3u);
  EXPECT_EQ(parts[2].entities(0).table_entry().priority(), 3);
  EXPECT_EQ(status.error_code(), StatusCode::UNKNOWN);
  EXPECT_EQ(errorsOf(status).size(), 2u);
}

TEST_F(Batch, AReadIsToldThatNobodyListensAnyMore) {
  std::atomic<bool> told = false;
  served.target.onRead = [&](const p4::v1::ReadRequest&, const FakeTarget::Send& send) {
    p4::v1::ReadResponse part;
    part.add_entities()->mutable_table_entry()->set_metadata(std::string(100'000, 'x'));
    while (send(part)) {
    }
    told = true;
    return FakeTarget::WriteResult{};
  };
  {
    Context context;
    const auto reader = stub->Read(&context, readOf());
    p4::v1::ReadResponse part;
    ASSERT_TRUE(reader->Read(&part));
    context.TryCancel();
    reader->Finish();
  }
  served.stop();
  EXPECT_TRUE(told);
}

TEST(Utf8, OfValidTextIsTheTextItself) {
  const std::string text = "a \xc2\x80 \xe0\xa0\x80 \xed\x9f\xbf \xf0\x90\x80\x80 \xf4\x8f\xbf\xbf";
  EXPECT_EQ(Agent::Rpc::utf8(text), text);
}

TEST(StatusText, IsWholeUpToItsLimitAndCutBetweenCharactersBeyondIt) {
  using Agent::Rpc::statusText;
  const std::string full(1024, 'a');
  EXPECT_EQ(statusText(full), full);
  EXPECT_EQ(statusText(full + "b"), full.substr(0, 1021) + "...");
  // A character of four bytes, or an escape, that stands across the limit is left out as a whole.
  const std::string head(1019, 'a'), tail(10, 'b');
  EXPECT_EQ(statusText(head + "\xf0\x90\x80\x80" + tail), head + "...");
  EXPECT_EQ(statusText(head + "\xff" + tail), head + "...");
  EXPECT_EQ(statusText(full.substr(0, 1023) + "\xff"), full.substr(0, 1021) + "...");
  EXPECT_EQ(statusText(""), "");
}

TEST(Utf8, EscapesBytesThatAreNoCharacter) {
  const std::pair<std::string, std::string> cases[] = {
      {"\x80", "\\x80"},                             // begins nothing
      {"\xc1\xbf", "\\xc1\\xbf"},                    // longer than need be
      {"\xe0\x9f\xbf", "\\xe0\\x9f\\xbf"},           // longer than need be
      {"\xed\xa0\x80", "\\xed\\xa0\\x80"},           // half of a pair
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},  // beyond the last one
      {"\xe2\x82", "\\xe2\\x82"},                    // ends too early
      {"\xff"
       "a",
       "\\xffa"},
  };
  for (const auto& [text, escaped] : cases) EXPECT_EQ(Agent::Rpc::utf8(text), escaped);
}

}  // namespace
}  // namespace RpcTest
