#include "platform/media/FileURL.h"

#include <gtest/gtest.h>

using vexo::media::FileURL;

TEST(FileURLTest, EncodesEveryByteButUnreservedOnesAndDecodesBack) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/music/a.mp3", "file:///music/a.mp3"},
        {"/music/My Song (live).mp3", "file:///music/My%20Song%20%28live%29.mp3"},
        {"/m/100%#?.flac", "file:///m/100%25%23%3F.flac"},
        {"/m/Café.ogg", "file:///m/Caf%C3%A9.ogg"},
        {"/m/a~b_c-d.e", "file:///m/a~b_c-d.e"},
        {"/m/\xff.wav", "file:///m/%FF.wav"},
    };
    for (const auto& [path, url] : rows) {
        EXPECT_EQ(FileURL::fromPath(path), url);
        EXPECT_EQ(FileURL::toPath(url), std::filesystem::path(path)) << url;
    }
}

TEST(FileURLTest, ReadsOnlyLocalFileURLs) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> rows = {
        {"FILE:///a/b.mp3", "/a/b.mp3"},
        {"file://localhost/a/b%20c.mp3", "/a/b c.mp3"},
        {"file:///a/b.mp3?x=1#t", "/a/b.mp3"},
        {"file:///a/%e2%82%ac", "/a/\xe2\x82\xac"},
        {"file://server/a.mp3", std::nullopt},
        {"file:a.mp3", std::nullopt},
        {"file://", std::nullopt},
        {"http://host/a.mp3", std::nullopt},
        {"file:///a%2", std::nullopt},
        {"file:///a%zz", std::nullopt},
        {"file:///a%00b", std::nullopt},
    };
    for (const auto& [url, path] : rows) {
        const auto decoded = FileURL::toPath(url);
        EXPECT_EQ(decoded ? std::optional(decoded->string()) : std::nullopt, path) << url;
    }
}
