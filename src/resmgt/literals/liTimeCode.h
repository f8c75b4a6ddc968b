// Timecode: frame numbers as tape and editing systems show them.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/dtTime.h"
#include "zvbase/rational.h"

namespace Zv {

/// One video rate, and the text that it gives to a running frame number. Immutable, so that any thread may use it;
/// nothing blocks. Each of the member classes is one rate:
///
///     RCShdPtr<LiTimeCode> const rate(LiTimeCodePal::create());
///     rate->getTimecode(25); // "00:00:01:00"
///
/// Frame numbers may be negative: day -1 ends with frame -1.
class ZVRESMGT_EXPORT LiTimeCode : public RCBase<LkCounter<long>>
{
protected:
    ~LiTimeCode() noexcept(false) override;

public:
    /// The label of a frame: hours, minutes, seconds and frames, two digits each. Starts again every 24 hours.
    virtual LiString getTimecode(DtTimeIndex const &index) const;
    /// The frames between two frames of the same label.
    virtual DtTimeIndex getFramesPerTC24h() const;

    LiString getFullName() const { return _fullName; }
    LiString getShortName() const { return _shortName; }
    /// Real frames per second.
    Rational getEditRate() const { return _editRate; }
    /// Whether labels are skipped to keep pace with the clock.
    bool getDropFlag() const { return _dropFlag; }
    /// Labels per second: a whole number, which for NTSC is not the edit rate.
    DtTimeIndex getFramesPerTCSecond() const { return _framesPerTCSecond; }
    /// The day of a frame, rounded towards the past: 0 from frame 0 on, -1 before it.
    DtTimeIndex getDay(DtTimeIndex const &index) const;
    /// Hours, minutes, seconds and frames of a label's number, with the separators between them, each as wide as
    /// `width` at least and filled on the left. Skips no labels, and hours go on beyond 24. A separator or fill of
    /// value 0 ends the text.
    LiString getGenericTimecode(DtTimeIndex const &frame, char sep1, char sep2, char sep3,
                                int width, char fill) const;

protected:
    /// `framesPerTCSecond` is above 0.
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

/// 29.97 frames per second, counted as if they were 30: the labels fall behind the clock by 3.6 seconds in an hour.
class ZVRESMGT_EXPORT LiTimeCodeNtscNd final : public LiTimeCode
{
public:
    [[nodiscard]] static RCShdPtr<LiTimeCodeNtscNd> create();

private:
    LiTimeCodeNtscNd();
    ~LiTimeCodeNtscNd() noexcept(false) override;
};

/// 29.97 frames per second with labels that stay close to the clock: the first two labels of every minute are
/// skipped, but for each tenth minute. Separators are semicolons.
class ZVRESMGT_EXPORT LiTimeCodeNtscDf final : public LiTimeCode
{
public:
    [[nodiscard]] static RCShdPtr<LiTimeCodeNtscDf> create();

    LiString getTimecode(DtTimeIndex const &index) const override;
    DtTimeIndex getFramesPerTC24h() const override;

private:
    LiTimeCodeNtscDf();
    ~LiTimeCodeNtscDf() noexcept(false) override;
};

/// 25 frames per second.
class ZVRESMGT_EXPORT LiTimeCodePal final : public LiTimeCode
{
public:
    [[nodiscard]] static RCShdPtr<LiTimeCodePal> create();

private:
    LiTimeCodePal();
    ~LiTimeCodePal() noexcept(false) override;
};

/// 24 frames per second.
class ZVRESMGT_EXPORT LiTimeCodeFilm24 final : public LiTimeCode
{
public:
    [[nodiscard]] static RCShdPtr<LiTimeCodeFilm24> create();

private:
    LiTimeCodeFilm24();
    ~LiTimeCodeFilm24() noexcept(false) override;
};

} // namespace Zv
