#include "Services/Recordings/PCMFiles.h"

#include "Services/Recordings/RecordingsFolder.h"

namespace quillo::test {
namespace {

TEST(PCMFiles, MixingAddsSamplesAndSaturates) {
    using Samples = std::vector<int16_t>;
    const std::tuple<Samples, Samples, Samples> cases[] = {
        {{30'000}, {10'000}, {32'767}},
        {{-30'000}, {-10'000}, {-32'768}},
        {{32'767, -32'768}, {-32'768, 32'767}, {-1, -1}},
        {{1, 2, 3}, {10}, {11, 2, 3}},
        {{}, {7, 8}, {7, 8}},
        {{}, {}, {}},
    };
    for (const auto& [mic, system, mixed] : cases)
        EXPECT_EQ(pcm::mixPCMStreams(pcmOf(mic), pcmOf(system)), pcmOf(mixed));
    // Half a sample at an end is none.
    EXPECT_EQ(pcm::mixPCMStreams(pcmOf({5}) + "x", pcmOf({1}) + "y"), pcmOf({6}));
}

TEST(PCMFiles, FilesAreMixedLikeBuffersAcrossBlocks) {
    const RecordingsFolder folder;
    QByteArray mic;
    QByteArray system;
    for (int i = 0; i < 150'000; ++i)
        mic += pcmOf({static_cast<int16_t>(i * 7)});
    for (int i = 0; i < 90'001; ++i)
        system += pcmOf({static_cast<int16_t>(i * -13)});
    folder.write(u"mic.pcm"_qs, mic + "x"); // a write that was cut within a sample
    folder.write(u"system.pcm"_qs, system);
    const auto size =
        pcm::writeWavFile(folder.path(u"both.wav"_qs), folder.path(u"mic.pcm"_qs), folder.path(u"system.pcm"_qs));
    EXPECT_EQ(size.micBytes, mic.size());
    EXPECT_EQ(size.systemBytes, system.size());
    EXPECT_EQ(size.wavBytes, mic.size());
    const auto wav = folder.read(u"both.wav"_qs);
    EXPECT_TRUE(wav.mid(pcm::wavHeaderSize) == pcm::mixPCMStreams(mic, system));
    EXPECT_EQ(wav.left(pcm::wavHeaderSize), pcm::wavHeader(static_cast<uint32_t>(mic.size())));
    EXPECT_EQ(QFile::permissions(folder.path(u"both.wav"_qs)) & (QFile::ReadGroup | QFile::ReadOther), 0);
}

// Against a header that a widely used program wrote (sox -r 16000 -c 1 -b 16): what players expect.
TEST(PCMFiles, TheHeaderIsThatOfAPlainWavFile) {
    const auto expected = QByteArray::fromHex("524946464406000057415645666d74201000000001000100803e0000007d0000"
                                              "020010006461746120060000");
    EXPECT_EQ(pcm::wavHeader(1568).toHex(), expected.toHex());
}

TEST(PCMFiles, WhatCannotBeConvertedLeavesNoFile) {
    const RecordingsFolder folder;
    folder.write(u"empty.pcm"_qs, {});
    folder.write(u"odd.pcm"_qs, "x");
    for (const auto& name : {u"empty.pcm"_qs, u"odd.pcm"_qs, u"missing.pcm"_qs}) {
        EXPECT_THROW(pcm::writeWavFile(folder.path(u"out.wav"_qs), folder.path(name)), FileError);
        EXPECT_FALSE(QFile::exists(folder.path(u"out.wav"_qs)));
    }
    // A file of which all but the size is a hole.
    QFile huge(folder.path(u"huge.pcm"_qs));
    ASSERT_TRUE(huge.open(QIODevice::WriteOnly) && huge.resize(4LL * 1024 * 1024 * 1024));
    EXPECT_THROW(pcm::writeWavFile(folder.path(u"out.wav"_qs), huge.fileName()), FileError);
    EXPECT_FALSE(QFile::exists(folder.path(u"out.wav"_qs)));
}

} // namespace
} // namespace quillo::test
