#include "corvalen/collection/DataCollection.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using System::Collection::FDataCollection;

unsigned char const* BytesOf(std::string const& text) {
    return reinterpret_cast<unsigned char const*>(text.data());
}

unsigned Add(FDataCollection& collection, std::string const& text) {
    return collection.Add(BytesOf(text), static_cast<unsigned>(text.size()));
}

std::string Content(FDataCollection const& collection) {
    auto const* const data = reinterpret_cast<char const*>(collection.get_Data());
    return data == nullptr ? std::string() : std::string(data, collection.get_Count());
}

struct Copy {
    bool isMade;
    std::unique_ptr<unsigned char[]> bytes;
    unsigned length;
};

Copy CloneOf(FDataCollection& collection) {
    unsigned char other = 0;
    unsigned char* bytes = &other;
    unsigned length = 77;
    bool const isMade = collection.Clone(bytes, length);
    return {isMade, std::unique_ptr<unsigned char[]>(bytes), length};
}

void ExpectEmpty(FDataCollection& collection) {
    unsigned char value = 7;
    EXPECT_EQ(collection.get_Count(), 0U);
    EXPECT_FALSE(collection.get_At(0, value));
    EXPECT_EQ(value, 7);
    Copy const copy = CloneOf(collection);
    EXPECT_FALSE(copy.isMade);
    EXPECT_EQ(copy.bytes, nullptr);
    EXPECT_EQ(copy.length, 0U);
}

TEST(DataCollection, HasNoBufferWithoutBytes) {
    unsigned char const byte = 1;
    FDataCollection fresh;
    FDataCollection fromNull(nullptr, 5);
    FDataCollection ofNone(&byte, 0);
    std::unique_ptr<FDataCollection> const clone(fresh.Clone());
    for (FDataCollection* collection : {&fresh, &fromNull, &ofNone, clone.get()}) {
        ExpectEmpty(*collection);
        EXPECT_EQ(collection->get_Data(), nullptr);
    }
}

TEST(DataCollection, GivesBytesByIndexUpToTheLast) {
    FDataCollection collection;
    EXPECT_EQ(Add(collection, "abc"), 3U);
    EXPECT_EQ(Add(collection, "de"), 5U);
    unsigned char value = 0;
    EXPECT_TRUE(collection.get_At(4, value));
    EXPECT_EQ(value, 'e');
    EXPECT_FALSE(collection.get_At(5, value));
    EXPECT_FALSE(collection.get_At(UINT32_MAX, value));
    EXPECT_EQ(value, 'e');
}

TEST(DataCollection, ReplacesItsBufferEvenForNoBytes) {
    FDataCollection collection;
    EXPECT_EQ(collection.Add(nullptr, 0), 0U);
    EXPECT_NE(collection.get_Data(), nullptr);
    ExpectEmpty(collection);
    EXPECT_EQ(Add(collection, "abc"), 3U);
    unsigned char const* const before = collection.get_Data();
    EXPECT_EQ(collection.Add(nullptr, 0), 3U);
    EXPECT_NE(collection.get_Data(), before);
    EXPECT_EQ(Content(collection), "abc");
}

TEST(DataCollection, TakesDataFromItsOwnBuffer) {
    FDataCollection collection(BytesOf("abc"), 3);
    EXPECT_EQ(collection.Add(collection.get_Data() + 1, 2), 5U);
    EXPECT_EQ(collection.Add(collection.get_Data(), 5), 10U);
    EXPECT_EQ(Content(collection), "abcbcabcbc");
}

TEST(DataCollection, RefusesMoreBytesThanItCanCount) {
    FDataCollection collection(BytesOf("abc"), 3);
    EXPECT_THROW(collection.Add(collection.get_Data(), UINT32_MAX - 2), std::bad_alloc);
    EXPECT_EQ(collection.LockCount(), 0U);
    EXPECT_EQ(Content(collection), "abc");
}

TEST(DataCollection, DoesNotShareWithItsClones) {
    FDataCollection collection(BytesOf("abc"), 3);
    std::unique_ptr<FDataCollection> const clone(collection.Clone());
    Copy const copy = CloneOf(collection);
    Add(collection, "d");
    EXPECT_EQ(Content(*clone), "abc");
    ASSERT_TRUE(copy.isMade);
    EXPECT_EQ(std::string(copy.bytes.get(), copy.bytes.get() + copy.length), "abc");
    collection.Clear();
    collection.Clear();
    EXPECT_EQ(collection.get_Data(), nullptr);
    ExpectEmpty(collection);
    EXPECT_EQ(Add(collection, "x"), 1U);
}

TEST(DataCollection, DoesWhatAStringDoes) {
    for (unsigned seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        FDataCollection collection;
        std::string model;
        for (int step = 0; step < 60; ++step) {
            if (random() % 16 == 0) {
                collection.Clear();
                model.clear();
            } else if (random() % 4 == 0 && !model.empty() && model.size() < 5000) {
                std::size_t const from = random() % model.size();
                collection.Add(collection.get_Data() + from, static_cast<unsigned>(model.size() - from));
                model += model.substr(from);
            } else {
                std::string const text(random() % 20, static_cast<char>(random()));
                EXPECT_EQ(Add(collection, text), (model += text).size());
            }
            ASSERT_EQ(Content(collection), model);
        }
    }
}

TEST(DataCollection, IsHeldByAReaderThroughItsOwnLock) {
    constexpr unsigned kWriters = 2;
    constexpr unsigned kPairs = 500;
    FDataCollection collection;
    std::vector<std::jthread> writers;
    for (unsigned writer = 0; writer < kWriters; ++writer) {
        writers.emplace_back([&] {
            for (unsigned i = 0; i < kPairs; ++i) {
                Add(collection, "ab");
            }
        });
    }
    for (unsigned seen = 0; seen < 2 * kWriters * kPairs;) {
        collection.Lock();
        seen = collection.get_Count();
        std::string const content = Content(collection);
        collection.Unlock();
        for (unsigned i = 0; i < seen; ++i) {
            ASSERT_EQ(content[i], i % 2 == 0 ? 'a' : 'b');
        }
        std::this_thread::yield();
    }
}

}  // namespace
