#pragma once

#include <memory>

/**
 * From pixels of the analysis stream (the input) to pixels of a stream that is being watched (the output), which has a
 * size, an aspect ratio and perhaps a mirror of its own.
 *
 * This class scales proportionally, so that corners meet corners. Sizes are at least 2 pixels each way; height comes
 * before width. Coordinates outside the input map to somewhere outside the output, unless a kind says otherwise.
 */
class StreamMapper {
public:
    StreamMapper(int inputHeight, int inputWidth, int outHeight, int outWidth, bool mirrored);
    virtual ~StreamMapper() = default;
    StreamMapper(const StreamMapper&) = delete;
    StreamMapper& operator=(const StreamMapper&) = delete;

    virtual int mapY(int y) const;

    /** Lengths; never mirrored. */
    virtual int mapWidth(int w) const;
    virtual int mapHeight(int h) const;

    /** The part of the input that the output shows, both corners included. */
    virtual void getActiveInputRectangle(int& x0, int& y0, int& x1, int& y1) const;

    /** Where the input's picture lies in the output; with a mirror x0 may be the larger. */
    virtual void getActiveOutputRectangle(int& x0, int& y0, int& x1, int& y1) const;

    /** Column in the output, mirrored where the output is. */
    int mapX(int x) const;

    /** Both coordinates, in place. */
    void mapPoint(int& x, int& y) const;

    int outputHeight() const { return HO; }
    int outputWidth() const { return WO; }

protected:
    /** Column before mirroring. */
    virtual int _mapX(int x) const;

    int HI; /**< input height */
    int WI; /**< input width */
    int HO; /**< output height */
    int WO; /**< output width */
    bool isMirrored;
};

/** For an output that shows a cut-out of the input's picture; what lies outside is pinned to the output's edge. */
class ExtractionMapper : public StreamMapper {
public:
    ExtractionMapper(int inputHeight, int inputWidth, int outHeight, int outWidth, bool mirrored);

    int mapY(int y) const override;
    int mapWidth(int w) const override;
    int mapHeight(int h) const override;
    void getActiveInputRectangle(int& x0, int& y0, int& x1, int& y1) const override;

protected:
    int _mapX(int x) const override;

    float alpha = 1.0F;
    float epsilonX = 0.0F; /**< columns of the input cut away at the left and at the right */
    float epsilonY = 0.0F; /**< rows cut away at the top and at the bottom */
};

/** For an output in which the input's whole picture sits centred, with bands at two sides. */
class EmbeddingMapper : public StreamMapper {
public:
    EmbeddingMapper(int inputHeight, int inputWidth, int outHeight, int outWidth, bool mirrored);

    int mapY(int y) const override;
    int mapWidth(int w) const override;
    int mapHeight(int h) const override;
    void getActiveInputRectangle(int& x0, int& y0, int& x1, int& y1) const override;
    void getActiveOutputRectangle(int& x0, int& y0, int& x1, int& y1) const override;

protected:
    int _mapX(int x) const override;

    float alpha = 1.0F;
    float deltaX = 0.0F; /**< width of the output's bands at the left and at the right */
    float deltaY = 0.0F; /**< height of its bands at the top and at the bottom */
};

/**
 * The mapper for a pair of streams: a 16:9 sensor's picture is cut at the sides for narrower outputs and banded for
 * wider ones, a 4:3 sensor's the other way round (g_SensorIs16x9). isRotated: the output is turned by 90 or 270
 * degrees, which swaps how the two aspect ratios compare.
 */
std::unique_ptr<StreamMapper> getStreamMapper(int HI, int WI, int HO, int WO, bool isRotated, bool isMirrored);
