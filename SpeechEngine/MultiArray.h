#pragma once
// A shaped array of numbers passed to and from the networks: the engine's stand-in for a
// platform multi-array. Values are held as 32-bit floats whatever the declared element type;
// int32 arrays (token ids, lengths, bin indices) are exact up to 2^24.

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace speech {

enum class ElementType { float32, int32 };
const char* name(ElementType type);

class MultiArray {
  public:
    MultiArray() = default;
    // A zeroed, contiguous (row-major) array.
    explicit MultiArray(std::vector<std::int64_t> shape, ElementType type = ElementType::float32);
    // An array over `data` laid out with element `strides`. Throws std::invalid_argument when a
    // dimension or stride is negative or an element would fall outside `data`.
    static MultiArray strided(std::vector<std::int64_t> shape, std::vector<std::int64_t> strides,
                              std::vector<float> data, ElementType type = ElementType::float32);
    // A contiguous array holding `values` in order; the shape must hold exactly that many.
    static MultiArray of(std::vector<std::int64_t> shape, std::vector<float> values,
                         ElementType type = ElementType::float32);
    static MultiArray scalarInt(std::int64_t value);  // int32 of shape (1)

    const std::vector<std::int64_t>& shape() const { return shape_; }
    const std::vector<std::int64_t>& strides() const { return strides_; }
    ElementType type() const { return type_; }
    std::int64_t rank() const { return static_cast<std::int64_t>(shape_.size()); }
    // Number of elements the shape describes.
    std::int64_t count() const { return count_; }
    bool isContiguous() const { return contiguous_; }

    // The backing storage, laid out by strides().
    std::span<float> storage() { return data_; }
    std::span<const float> storage() const { return data_; }

    // Element by index (one entry per dimension), through the strides.
    float at(std::initializer_list<std::int64_t> index) const;
    float& at(std::initializer_list<std::int64_t> index);
    // Element by position in row-major order, through the strides.
    float flat(std::int64_t position) const;

    // Makes this a zeroed contiguous array of `shape`, reusing the storage when it is large
    // enough: repeated calls with one shape allocate nothing.
    void reshape(std::span<const std::int64_t> shape, ElementType type);
    void fill(float value);

    // "(1, 640, 1)"
    std::string shapeText() const;

  private:
    std::int64_t offset(std::initializer_list<std::int64_t> index) const;
    static std::vector<std::int64_t> rowMajorStrides(const std::vector<std::int64_t>& shape);

    std::vector<std::int64_t> shape_;
    std::vector<std::int64_t> strides_;
    std::vector<float> data_;
    ElementType type_ = ElementType::float32;
    std::int64_t count_ = 0;
    bool contiguous_ = true;
};

// "(1, 640, 1)" for any shape.
std::string shapeText(std::span<const std::int64_t> shape);

}  // namespace speech
