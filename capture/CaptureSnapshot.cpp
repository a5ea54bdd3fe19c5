// One picture, published: XEncCapture, Resize, CopyFileBinary.  Tested in tests/capture/SnapshotTest.cpp.
#include "capture/Capture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>

#include "capture/Config.h"
#include "common/Constants.h"
#include "common/FileAccess.h"
#include "common/FileLogger.h"
#include "common/HelperImage.h"

using qz::common::HelperImage;
using qz::common::LIVEVIEW_FAILED_PATH;
using qz::common::LIVEVIEW_PATH;
using qz::common::LIVEVIEW_TMP_PATH;
using qz::common::MD_CAPTURE_PATH;
using qz::common::MD_CAPTURE_TMP_PATH;
using qz::common::OpenRegularForReading;
using qz::common::OpenRegularForWriting;
using qz::common::ReadSome;
using qz::common::UniqueFd;
using qz::common::WriteAll;

namespace qz::capture {

namespace {

constexpr float LANDSCAPE_TARGET = 960;
constexpr float VERTICAL_TARGET = 1024;

struct ScaleStep {
    int rate;
    const char* fraction;
};

// Every other rate is converted at full size, 0 (a picture of more than ten times the target) included: programs that
// read the live view know its sizes.
constexpr ScaleStep SCALE_STEPS[] = {{10, "1/8"}, {20, "2/8"}, {30, "3/8"}, {40, "3/8"}, {50, "4/8"},
                                     {60, "5/8"}, {70, "5/8"}, {80, "6/8"}, {90, "7/8"}};

// Whether all of src arrived in dst, which a full disk may deny as late as at the closing.
bool CopyContents(const std::string& src, const std::string& dst) {
    const UniqueFd in = OpenRegularForReading(src.c_str());
    if (!in.Valid())
        return false;
    UniqueFd out = OpenRegularForWriting(dst.c_str(), O_TRUNC);
    if (!out.Valid())
        return false;
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t count = ReadSome(in.Get(), buffer, sizeof buffer);
        if (count <= 0)
            return count == 0 && out.Reset();
        if (WriteAll(out.Get(), buffer, static_cast<size_t>(count)) != static_cast<size_t>(count))
            return false;
    }
}

} // namespace

std::mutex Capture::m_XEncMutex;

bool Capture::XEncCapture() {
    const std::lock_guard<std::mutex> lock(m_XEncMutex);
    if (!m_XEncInit || !m_MdInit || !m_MdStart) {
        QZ_LOG(ERR, "Capture not initialized");
        return false;
    }
    if (m_MdState != STATE_ENCODING)
        return false;
    if (kt_md_capture(MD_CAPTURE_TMP_PATH.c_str()) == 0) {
        QZ_LOG(ERR, "kt_md_capture failed");
        return false;
    }
    QZ_LOG(INF, "kt_md_capture success");
    rename(MD_CAPTURE_TMP_PATH.c_str(), MD_CAPTURE_PATH.c_str());
    Resize();
    return true;
}

Capture::Scale Capture::ScaleFor(int width, int height, bool vertical) {
    const float target = vertical ? VERTICAL_TARGET : LANDSCAPE_TARGET;
    // Single precision throughout: 0.7 x 100 must be 70, not 69.
    const float ratio = std::floor(target / static_cast<float>(std::max(width, height)) * 10.0F) / 10.0F;
    const float percent = ratio * 100.0F;
    int rate = static_cast<int>(percent);
    if (vertical && rate > 10)
        rate -= 10; // vertical pictures come out one step smaller, on purpose
    const auto* step = std::find_if(std::begin(SCALE_STEPS), std::end(SCALE_STEPS),
                                    [rate](const ScaleStep& candidate) { return candidate.rate == rate; });
    return {ratio, rate, step == std::end(SCALE_STEPS) ? "8/8" : step->fraction};
}

void Capture::Resize() {
    int width = 0;
    int height = 0;
    if (!HelperImage::GetJPEGSize(MD_CAPTURE_PATH.c_str(), width, height) || width <= 0 || height <= 0) {
        QZ_LOG(ERR, "GetSize failed. jpegSize: " << width << " X " << height);
        return;
    }
    const bool vertical = Config::instance()->ScreenMode() % 2 == 1; // signed: a negative mode is not vertical
    const Scale scale = ScaleFor(width, height, vertical);

    // A leftover of an interrupted conversion must not be published when this one leaves nothing.
    unlink(LIVEVIEW_TMP_PATH.c_str());
    if (!m_Converter.Convert(scale.fraction, LIVEVIEW_TMP_PATH, MD_CAPTURE_PATH))
        unlink(LIVEVIEW_TMP_PATH.c_str());
    rename(LIVEVIEW_TMP_PATH.c_str(), LIVEVIEW_PATH.c_str());
    QZ_LOG(INF, "Resize complete. jpegSize: " << width << " X " << height << ", rate: " << scale.rate
                                              << ", ratio: " << scale.ratio << ", vertical: " << vertical);
}

bool Capture::CopyFileBinary(std::string src, std::string dst) {
    if (src.empty() || dst.empty())
        return false;
    struct stat status {};
    if (lstat(src.c_str(), &status) != 0 || S_ISDIR(status.st_mode))
        return false;
    unlink(dst.c_str());
    if (!CopyContents(src, dst)) {
        QZ_LOG(ERR, "cannot read File");
        return false;
    }
    QZ_LOG(INF, "copy finished: `" << src << "` to `" << dst << "`");
    return true;
}

void Capture::PublishFailurePicture() {
    CopyFileBinary(LIVEVIEW_FAILED_PATH, MD_CAPTURE_PATH);
    CopyFileBinary(LIVEVIEW_FAILED_PATH, LIVEVIEW_PATH);
}

} // namespace qz::capture
