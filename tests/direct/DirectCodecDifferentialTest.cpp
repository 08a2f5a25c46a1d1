// The direct codec against the converters, on thousands of documents generated from the
// declared types' schemas: valid ones, ones with mutated values, and ones damaged byte
// by byte; read by "type" and by name, from one buffer (with and without room after the
// bytes), from synchronous chunks of 1 byte to 64 KiB, from a publisher's own thread,
// from streams that end late, and from streams that fail part of the way through. Every
// message read is written back through all four serializing operations. Both paths must
// end the same way: the same message (every declared member, floating point bit for
// bit), or the same exception type and text; the same bytes; the same log records.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/Exception.h>

#include "direct/DirectTypesInScope.hpp"
#include "direct/DocumentGenerator.hpp"
#include "serializer/ChunkPublisher.hpp"
#include "support/DirectDifferential.hpp"
#include "support/StagedPublisher.hpp"

namespace connector::testing {
namespace {

// Documents per type and kind of document.
constexpr int kDocuments = sanitizedBuild() ? 60 : 200;

// A document in a failure message: printable, and not too long.
std::string shown(const std::string& document) {
  std::string out;
  for (const unsigned char c : document.substr(0, 600)) {
    if (c < 0x20 || c >= 0x7f) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", c);
      out += escaped;
    } else {
      out += static_cast<char>(c);
    }
  }
  return document.size() > 600 ? out + "..." : out;
}

class DirectCodecDifferentialTest : public ::testing::Test {
 protected:
  DirectCodecDifferentialTest() : types(declareTypesInScope(both)) {}

  // Compares reading the document by "type" and by the type's name, and writing what
  // was read; publish makes one publisher of the document per side.
  void compare(const TypeInScope& type, const std::string& document,
               const BytePublisherFactory& publish) {
    EXPECT_EQ(both.compareRead(nullptr, publish), "")
        << type.name << " by type: " << shown(document);
    EXPECT_EQ(both.compareRead(&type.name, publish), "")
        << type.name << " by name: " << shown(document);
    const ReadOutcome read = DirectDifferential::read(*both.reference, &type.name, publish());
    if (read.message) {
      ++messagesRead;
      EXPECT_EQ(both.compareWrite(read.message), "") << type.name << ": " << shown(document);
    }
  }

  DirectDifferential both;
  std::vector<TypeInScope> types;
  int messagesRead = 0;
};

TEST_F(DirectCodecDifferentialTest, GeneratedDocumentsReadAndWriteTheSameOnBothPaths) {
  DocumentGenerator generate(1);
  for (const auto& type : types) {
    for (int i = 0; i < kDocuments; ++i) {
      const std::string document = generate.document(*type.schema, 0.0);
      compare(type, document, oneShot(document, i % 2 == 0 ? 64 : 0));
    }
  }
  // Valid documents of every type were read (they are not all refused for a wrong reason).
  EXPECT_GE(messagesRead, static_cast<int>(types.size()) * kDocuments * 9 / 10);
}

TEST_F(DirectCodecDifferentialTest, DocumentsWithMutatedValuesReadTheSameOnBothPaths) {
  DocumentGenerator generate(2);
  for (const auto& type : types) {
    for (int i = 0; i < kDocuments; ++i) {
      const std::string document = generate.document(*type.schema, 0.04);
      compare(type, document, oneShot(document, 64));
    }
  }
  EXPECT_GT(messagesRead, 0);
}

TEST_F(DirectCodecDifferentialTest, DocumentsDamagedByteByByteReadTheSameOnBothPaths) {
  DocumentGenerator generate(3);
  for (const auto& type : types) {
    for (int i = 0; i < kDocuments; ++i) {
      std::string document = generate.damaged(generate.document(*type.schema, 0.0));
      if (i % 3 == 0) document = generate.damaged(document);
      compare(type, document, oneShot(document));
    }
  }
}

TEST_F(DirectCodecDifferentialTest, ChunkedStreamsReadTheSameAsOneBuffer) {
  DocumentGenerator generate(4);
  const std::size_t sizes[] = {1, 2, 7, 64, 4096, 65536};
  for (const auto& type : types) {
    for (int i = 0; i < kDocuments / 4; ++i) {
      const std::string document = generate.document(*type.schema, i % 2 == 0 ? 0.0 : 0.04);
      const std::size_t size = sizes[i % std::size(sizes)];
      compare(type, document, [document, size] {
        return std::make_shared<StagedPublisher>(StagedPublisher::split(document, size));
      });
      compare(type, document, [document, size] {  // the end comes later, from a thread
        return std::make_shared<StagedPublisher>(StagedPublisher::split(document, size), nullptr,
                                                 true);
      });
      if (i % 4 == 0) {  // delivered from the publisher's own thread
        compare(type, document, [document, size] {
          return std::make_shared<ChunkPublisher>(ChunkPublisher::split(document, size));
        });
      }
    }
  }
}

TEST_F(DirectCodecDifferentialTest, StreamsThatFailPartOfTheWayReadTheSameOnBothPaths) {
  DocumentGenerator generate(5);
  const std::exception_ptr errors[] = {std::make_exception_ptr(std::runtime_error("link dropped")),
                                       std::make_exception_ptr(Poco::IOException("socket reset")),
                                       std::make_exception_ptr(std::invalid_argument("bad chunk")),
                                       nullptr};
  for (const auto& type : types) {
    for (int i = 0; i < kDocuments / 4; ++i) {
      const std::string document = generate.document(*type.schema, 0.0);
      const std::exception_ptr error = errors[i % std::size(errors)];
      // Cut anywhere: before the document ends, or after all of it.
      const std::size_t cut = generate.below(document.size() + 1);
      std::vector<std::string> chunks = StagedPublisher::split(document.substr(0, cut), 5);
      compare(type, document, [chunks, error] {
        return std::make_shared<StagedPublisher>(
            chunks, error ? error : std::make_exception_ptr(std::runtime_error("no end")));
      });
      compare(type, document,
              [chunks, error] { return std::make_shared<StagedPublisher>(chunks, error, true); });
    }
  }
}

TEST_F(DirectCodecDifferentialTest, EveryTypeIsReadAndWrittenByItsDirectCodec) {
  // The comparisons above would also pass if the direct codec were never used. With
  // converters that do nothing beside it, valid documents still read and write: all
  // but those it leaves to the converters (a number of more than 19 digits, a member
  // name holding a NUL, ...), which fail here; and what the converters write, it writes.
  constexpr int kTries = 20;
  DocumentGenerator generate(6);
  DirectDifferential alone;
  declareTypesInScope(alone);
  for (const auto& type : types) {
    type.registerDirectCodecAlone(*alone.direct);
    int read = 0;
    for (int i = 0; i < kTries; ++i) {
      const std::string document = generate.document(*type.schema, 0.0);
      const ReadOutcome expected =
          DirectDifferential::read(*both.reference, &type.name, oneShot(document)());
      ASSERT_TRUE(expected.message) << type.name << ": " << expected.failure;
      const ReadOutcome direct =
          DirectDifferential::read(*alone.direct, nullptr, oneShot(document)());
      if (!direct.message) {
        EXPECT_EQ(direct.failure, "St16invalid_argument: Error while parsing: bad_function_call");
        continue;
      }
      ++read;
      EXPECT_EQ(both.describe(direct.message), both.describe(expected.message)) << type.name;
      const auto written = DirectDifferential::write(*alone.direct, direct.message,
                                                     DirectDifferential::Write::SerializeToStream);
      const auto expectedText = DirectDifferential::write(
          *both.reference, expected.message, DirectDifferential::Write::SerializeToStream);
      if (expectedText.failure.empty()) {
        EXPECT_EQ(written.failure, "") << type.name;
        EXPECT_EQ(written.text, expectedText.text) << type.name;
      }
    }
    // The larger a document, the likelier it holds one of the literals left to the
    // converters (a type with every kind of member meets one in about half of them).
    EXPECT_GE(read, kTries / 4) << type.name;
  }
}

}  // namespace
}  // namespace connector::testing
