// Timecode: frame numbers as the labels of tape and editing systems (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/dtTime.h"
#include "zvbase/rational.h"

namespace Zv {

/// Turns running frame numbers of one video rate into labels. Each derived class is one rate.
///
///     Zv::RCShdPtr<Zv::LiTimeCode> const rate(Zv::LiTimeCodePal::create());
///     Zv::LiString const label = rate->getTimecode(25); // "00:00:01:00"
///
/// Frame numbers may be negative: frame -1 is the last frame of day -1.
///
/// **Threads**: thread-safe; the object never changes.
class ZVRESMGT_EXPORT LiTimeCode : public RCBase<LkCounter<long>>
{
protected:
    ~LiTimeCode() noexcept(false) override;

public:
    /// Returns the label of a frame: hours, minutes, seconds and frames, with two digits each. The
    /// labels start again every 24 hours.
    virtual LiString getTimecode(DtTimeIndex const &index) const;
    /// Returns the number of frames in 24 hours of labels.
    virtual DtTimeIndex getFramesPerTC24h() const;

    LiString getFullName() const { return _fullName; }
    LiString getShortName() const { return _shortName; }
    /// Returns the real frames per second.
    Rational getEditRate() const { return _editRate; }
    /// Returns true if labels are skipped, so that the labels stay close to the clock.
    bool getDropFlag() const { return _dropFlag; }
    /// Returns the labels per second, a whole number. For NTSC it differs from the edit rate.
    DtTimeIndex getFramesPerTCSecond() const { return _framesPerTCSecond; }
    /// Returns the day of a frame, rounded down: 0 from frame 0 on, -1 before it.
    DtTimeIndex getDay(DtTimeIndex const &index) const;
    /// Returns hours, minutes, seconds and frames of a label's number with the separators between
    /// them. Each number has at least `width` characters and is filled on the left. No labels are
    /// skipped, and the hours continue after 23. A separator or a fill character of value 0 ends
    /// the text.
    LiString getGenericTimecode(DtTimeIndex const &frame, char sep1, char sep2, char sep3,
                                int width, char fill) const;

protected:
    /// Builds a rate. `framesPerTCSecond` must be above 0.
    LiTimeCode(LiString const &fullName, LiString const &shortName, Rational const &editRate,
               bool dropFlag, DtTimeIndex framesPerTCSecond);

    /// A number of frames within the 24 hours, never negative.
    DtTimeIndex wrap(DtTimeIndex index) const;

private:
    LiString _fullName;
    LiString _shortName;
    Rational _editRate;
    bool _dropFlag;
    DtTimeIndex _framesPerTCSecond;
};

/// NTSC without drop frames: 29.97 frames per second, labelled as if they were 30. The labels fall
/// behind the clock by 3.6 seconds in an hour.
class ZVRESMGT_EXPORT LiTimeCodeNtscNd final : public LiTimeCode
{
public:
    /// Returns a new object.
    [[nodiscard]] static RCShdPtr<LiTimeCodeNtscNd> create();

private:
    LiTimeCodeNtscNd();
    ~LiTimeCodeNtscNd() noexcept(false) override;
};

/// NTSC with drop frames: 29.97 frames per second. The first two labels of each minute are skipped,
/// except in each tenth minute, so that the labels stay close to the clock. The separators are
/// semicolons.
class ZVRESMGT_EXPORT LiTimeCodeNtscDf final : public LiTimeCode
{
public:
    /// Returns a new object.
    [[nodiscard]] static RCShdPtr<LiTimeCodeNtscDf> create();

    LiString getTimecode(DtTimeIndex const &index) const override;
    DtTimeIndex getFramesPerTC24h() const override;

private:
    LiTimeCodeNtscDf();
    ~LiTimeCodeNtscDf() noexcept(false) override;
};

/// PAL: 25 frames per second.
class ZVRESMGT_EXPORT LiTimeCodePal final : public LiTimeCode
{
public:
    /// Returns a new object.
    [[nodiscard]] static RCShdPtr<LiTimeCodePal> create();

private:
    LiTimeCodePal();
    ~LiTimeCodePal() noexcept(false) override;
};

/// Film: 24 frames per second.
class ZVRESMGT_EXPORT LiTimeCodeFilm24 final : public LiTimeCode
{
public:
    /// Returns a new object.
    [[nodiscard]] static RCShdPtr<LiTimeCodeFilm24> create();

private:
    LiTimeCodeFilm24();
    ~LiTimeCodeFilm24() noexcept(false) override;
};

} // namespace Zv
