#include "SpeechEngine/MultiArray.h"

#include <algorithm>
#include <stdexcept>

namespace speech {

const char* name(ElementType type) {
    return type == ElementType::int32 ? "int32" : "float32";
}

std::string shapeText(std::span<const std::int64_t> shape) {
    std::string text = "(";
    for (std::size_t i = 0; i < shape.size(); ++i) {
        if (i > 0) text += ", ";
        text += std::to_string(shape[i]);
    }
    return text + ")";
}

std::vector<std::int64_t> MultiArray::rowMajorStrides(const std::vector<std::int64_t>& shape) {
    std::vector<std::int64_t> strides(shape.size(), 1);
    std::int64_t step = 1;
    for (std::size_t i = shape.size(); i-- > 0;) {
        strides[i] = step;
        step *= std::max<std::int64_t>(shape[i], 1);
    }
    return strides;
}

namespace {

std::int64_t elementCount(std::span<const std::int64_t> shape) {
    std::int64_t count = 1;
    for (auto dimension : shape) {
        if (dimension < 0)
            throw std::invalid_argument("negative dimension in shape " + shapeText(shape));
        count *= dimension;
    }
    return count;
}

}  // namespace

MultiArray::MultiArray(std::vector<std::int64_t> shape, ElementType type)
    : shape_(std::move(shape)),
      strides_(rowMajorStrides(shape_)),
      type_(type),
      count_(elementCount(shape_)) {
    data_.assign(static_cast<std::size_t>(count_), 0.0f);
}

MultiArray MultiArray::strided(std::vector<std::int64_t> shape, std::vector<std::int64_t> strides,
                               std::vector<float> data, ElementType type) {
    if (strides.size() != shape.size())
        throw std::invalid_argument("strides do not match the shape's rank");
    MultiArray array;
    array.count_ = elementCount(shape);
    std::int64_t last = 0;
    for (std::size_t i = 0; i < shape.size(); ++i) {
        if (strides[i] < 0) throw std::invalid_argument("negative stride");
        if (shape[i] > 0) last += (shape[i] - 1) * strides[i];
    }
    if (array.count_ > 0 && last >= static_cast<std::int64_t>(data.size())) {
        throw std::invalid_argument("strides reach past the data of shape " +
                                    speech::shapeText(shape));
    }
    array.shape_ = std::move(shape);
    array.strides_ = std::move(strides);
    array.data_ = std::move(data);
    array.type_ = type;
    array.contiguous_ = array.strides_ == rowMajorStrides(array.shape_);
    return array;
}

MultiArray MultiArray::of(std::vector<std::int64_t> shape, std::vector<float> values,
                          ElementType type) {
    MultiArray array(std::move(shape), type);
    if (static_cast<std::int64_t>(values.size()) != array.count_) {
        throw std::invalid_argument("expected " + std::to_string(array.count_) +
                                    " values for shape " + array.shapeText() + ", got " +
                                    std::to_string(values.size()));
    }
    array.data_ = std::move(values);
    return array;
}

MultiArray MultiArray::scalarInt(std::int64_t value) {
    return of({1}, {static_cast<float>(value)}, ElementType::int32);
}

std::int64_t MultiArray::offset(std::initializer_list<std::int64_t> index) const {
    if (index.size() != shape_.size())
        throw std::out_of_range("index rank differs from shape " + shapeText());
    std::int64_t at = 0;
    std::size_t axis = 0;
    for (auto i : index) {
        if (i < 0 || i >= shape_[axis])
            throw std::out_of_range("index outside shape " + shapeText());
        at += i * strides_[axis++];
    }
    return at;
}

float MultiArray::at(std::initializer_list<std::int64_t> index) const {
    return data_[static_cast<std::size_t>(offset(index))];
}
float& MultiArray::at(std::initializer_list<std::int64_t> index) {
    return data_[static_cast<std::size_t>(offset(index))];
}

float MultiArray::flat(std::int64_t position) const {
    if (position < 0 || position >= count_)
        throw std::out_of_range("position outside shape " + shapeText());
    std::int64_t at = 0;
    for (std::size_t axis = shape_.size(); axis-- > 0;) {
        at += (position % shape_[axis]) * strides_[axis];
        position /= shape_[axis];
    }
    return data_[static_cast<std::size_t>(at)];
}

void MultiArray::reshape(std::span<const std::int64_t> shape, ElementType type) {
    if (!std::equal(shape.begin(), shape.end(), shape_.begin(), shape_.end()) || !contiguous_) {
        auto count = elementCount(shape);
        shape_.assign(shape.begin(), shape.end());
        count_ = count;
        strides_ = rowMajorStrides(shape_);
        contiguous_ = true;
    }
    type_ = type;
    data_.resize(static_cast<std::size_t>(count_));
    std::fill(data_.begin(), data_.end(), 0.0f);
}

void MultiArray::fill(float value) {
    std::fill(data_.begin(), data_.end(), value);
}

std::string MultiArray::shapeText() const {
    return speech::shapeText(shape_);
}

}  // namespace speech
