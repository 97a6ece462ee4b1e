// What a sequence's seqinfo.ini says about the video behind the detections.
#ifndef IVTRACK_SEQINFO_H
#define IVTRACK_SEQINFO_H

#include <optional>
#include <string>

namespace ivtrack {

/// The first seqinfo.ini found beside the detections or one folder up; empty when there is none.
class SeqInfo {
  public:
    SeqInfo() = default;
    static SeqInfo beside(const std::string& detections);

    const std::string& name() const { return name_; }

    /// Nothing when the file does not say; a value that is no such thing is BadInput.
    std::optional<double> image_width() const;
    std::optional<double> frame_rate() const;

  private:
    std::optional<double> value(const std::optional<std::string>& text, bool (*holds)(double),
                                const std::string& expected) const;

    std::string name_;
    std::optional<std::string> image_width_;
    std::optional<std::string> frame_rate_;
};

} // namespace ivtrack

#endif
