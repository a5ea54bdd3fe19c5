#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace qz::xenc {

// What is wrong with the pictures on request.
struct PictureFaults {
    std::chrono::milliseconds delay{0};
    int keptBytes = -1; // of every picture; -1: all
};

// One picture to take, as things stood when it was asked for.
struct Shot {
    std::string source; // as for PictureSource::Choose
    uint64_t number;    // from 1, since the source was chosen
    int degrees;
    PictureFaults faults;
};

// The pictures before the encoder.
//
// Threads: any thread may call everything.
class PictureSource {
public:
    // A JPEG file, a directory whose files take turns, or, when empty, the test card.
    void Choose(const std::string& source);
    PictureFaults Faults();
    void SetFaults(const PictureFaults& faults);

    Shot Next(int degrees);

private:
    std::mutex m_Lock; // guards the fields below
    std::string m_Source;
    uint64_t m_ShotCount = 0;
    PictureFaults m_Faults;
};

// Writes the shot's picture to the path, turned by its rotation and with its faults, but without the delay.  False when
// there is none.  The report is for the log; it also says when a given picture is damaged, which then is written as it
// is.
bool WritePicture(const Shot& shot, const std::string& path, std::string& report);

} // namespace qz::xenc
