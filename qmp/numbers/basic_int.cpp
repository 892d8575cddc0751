// BasicIntR / BasicIntO arithmetic on 32-bit words. Sums and differences run word by word at the
// same index, so the result may be either operand; products over an operand go to fresh
// storage first (the owning form) because row accumulation would overwrite operand words still
// to be read.
#include "qmp/numbers/basic_int.h"

#include <cstdlib>
#include <new>
#include <vector>

#include "qmp/console.h"
#include "qmp/exception.h"
#include "qmp/numbers/word_products.h"
#include "qmp/words/word_array.h"

namespace qmp {

namespace {

class HeapAllocator final : public WordAllocator {
public:
    void* allocate(uint64_t size_bytes) override {
        void* p = std::malloc(size_bytes);
        if (p == nullptr)
            throw MemoryAllocationFailedException("WordAllocator::allocate()",
                                                  "Unable to allocate " + std::to_string(size_bytes) + " bytes.");
        return p;
    }
    void deallocate(void* ptr, uint64_t) noexcept override { std::free(ptr); }
};

constexpr const char* invalid_prefix = "Invalid Function Parameters:   ";

}  // namespace

WordAllocator& WordAllocator::heap() {
    static HeapAllocator allocator;
    return allocator;
}

// ---- BasicIntR ---------------------------------------------------------------------------------

uint64_t BasicIntR::to_u64() const noexcept {
    uint64_t v = 0;
    if (L_ > 0) v = words_[0];
    if (L_ > 1) v |= uint64_t(words_[1]) << 32;
    return v;
}

void BasicIntR::reserve(uint64_t n_words, const char* function) {
    if (n_words > capacity_) throw BufferTooSmallException(function, capacity_, n_words);
}

uint32_t* BasicIntR::fresh_storage(uint64_t, const char* function) {
    throw InvalidParametersException(function, std::string(invalid_prefix) + "A product cannot overwrite its operand.");
}

void BasicIntR::adopt_storage(uint32_t*, uint64_t) {}

void BasicIntR::set_length(uint64_t n_words, const char* function) {
    n_words = normalized_length(words_, n_words);
    if (n_words == 0) throw InvalidParametersException(function, "Zero was encountered.");
    L_ = n_words;
}

void BasicIntR::check_operand(const BasicIntR& x, const char* function) const {
    if (x.L_ == 0) throw InvalidParametersException(function, std::string(invalid_prefix) + "Operand is zero.");
}

int BasicIntR::compare(const BasicIntR& A, const BasicIntR& B) {
    if (A.L_ != B.L_) return A.L_ < B.L_ ? -1 : 1;
    return cmp(A.words_, B.words_, A.L_);
}

void BasicIntR::add_into(const BasicIntR& A, const BasicIntR& B, const char* function) {
    check_operand(A, function);
    check_operand(B, function);
    const BasicIntR& X = A.L_ >= B.L_ ? A : B;
    const BasicIntR& Y = A.L_ >= B.L_ ? B : A;
    const uint64_t XL = X.L_, YL = Y.L_;
    reserve(XL + 1, function);  // may move this object's words; read X and Y after it
    const uint32_t carry = add(words_, X.words_, XL, Y.words_, YL);
    words_[XL] = carry;
    set_length(XL + 1, function);
}

void BasicIntR::sub_into(const BasicIntR& A, const BasicIntR& B, const char* function) {
    check_operand(A, function);
    check_operand(B, function);
    if (compare(A, B) < 0) throw InvalidParametersException(function, "A negative value was encountered.");
    const uint64_t AL = A.L_;
    reserve(AL, function);
    sub(words_, A.words_, AL, B.words_, B.L_);
    set_length(AL, function);
}

void BasicIntR::set_add(const BasicIntR& A, const BasicIntR& B) { add_into(A, B, "BasicIntR::set_add()"); }
void BasicIntR::set_sub(const BasicIntR& A, const BasicIntR& B) { sub_into(A, B, "BasicIntR::set_sub()"); }

void BasicIntR::set_mulB(const BasicIntR& A, const BasicIntR& B) {
    const char* function = "BasicIntR::set_mulB()";
    check_operand(A, function);
    check_operand(B, function);
    const uint64_t n = A.L_ + B.L_;
    if (&A == this || &B == this) {
        uint32_t* fresh = fresh_storage(n, function);
        mul_words_basecase(fresh, A.words_, A.L_, B.words_, B.L_);
        adopt_storage(fresh, n);
    } else {
        reserve(n, function);
        mul_words_basecase(words_, A.words_, A.L_, B.words_, B.L_);
    }
    set_length(n, function);
}

void BasicIntR::set_sqrB(const BasicIntR& A) { set_mulB(A, A); }

void BasicIntR::set_mulB(const BasicIntR& A, uint32_t x) {
    const char* function = "BasicIntR::set_mulB()";
    check_operand(A, function);
    if (x == 0) throw InvalidParametersException(function, "Zero was encountered.");
    const uint64_t AL = A.L_;
    reserve(AL + 1, function);
    words_[AL] = mul_1(words_, A.words_, AL, x);  // mul_1 allows the result to be A itself
    set_length(AL + 1, function);
}

// ---- BasicIntO ---------------------------------------------------------------------------------

BasicIntO::BasicIntO(uint64_t x, WordAllocator& allocator)
    : BasicIntR(nullptr, 0), allocator_(allocator) {
    if (x == 0) throw InvalidParametersException("BasicIntO::BasicIntO()", "Zero was encountered.");
    words_ = static_cast<uint32_t*>(allocator_.allocate(initial_words * sizeof(uint32_t)));
    capacity_ = initial_words;
    words_[0] = uint32_t(x);
    words_[1] = uint32_t(x >> 32);
    L_ = words_[1] != 0 ? 2 : 1;
}

BasicIntO::BasicIntO(const BasicIntR& x, WordAllocator& allocator)
    : BasicIntR(nullptr, 0), allocator_(allocator) {
    if (x.length() == 0) throw InvalidParametersException("BasicIntO::BasicIntO()", "Zero was encountered.");
    capacity_ = x.length() > initial_words ? x.length() : initial_words;
    words_ = static_cast<uint32_t*>(allocator_.allocate(capacity_ * sizeof(uint32_t)));
    copy_words(words_, x.words(), x.length());
    L_ = x.length();
}

BasicIntO::~BasicIntO() { allocator_.deallocate(words_, capacity_ * sizeof(uint32_t)); }

void BasicIntO::reserve(uint64_t n_words, const char*) {
    if (n_words <= capacity_) return;
    const uint64_t new_capacity = n_words > 2 * capacity_ ? n_words : 2 * capacity_;
    uint32_t* fresh = static_cast<uint32_t*>(allocator_.allocate(new_capacity * sizeof(uint32_t)));
    copy_words(fresh, words_, L_);
    adopt_storage(fresh, new_capacity);
}

uint32_t* BasicIntO::fresh_storage(uint64_t n_words, const char*) {
    return static_cast<uint32_t*>(allocator_.allocate(n_words * sizeof(uint32_t)));
}

void BasicIntO::adopt_storage(uint32_t* words, uint64_t capacity_words) {
    allocator_.deallocate(words_, capacity_ * sizeof(uint32_t));
    words_ = words;
    capacity_ = capacity_words;
}

void BasicIntO::set_BasicInt(const BasicIntR& x) {
    if (&x == this) return;
    if (x.length() == 0) throw InvalidParametersException("BasicIntO::set_BasicInt()", "Zero was encountered.");
    L_ = 0;  // nothing to keep when the storage grows
    reserve(x.length(), "BasicIntO::set_BasicInt()");
    copy_words(words_, x.words(), x.length());
    L_ = x.length();
}

BasicIntO& BasicIntO::operator+=(const BasicIntR& x) {
    add_into(*this, x, "BasicIntO::operator+=()");
    return *this;
}

BasicIntO& BasicIntO::operator+=(uint32_t x) {
    reserve(L_ + 1, "BasicIntO::operator+=()");
    words_[L_] = add_1(words_, words_, L_, x);
    L_ += words_[L_];
    return *this;
}

BasicIntO& BasicIntO::operator-=(const BasicIntR& x) {
    sub_into(*this, x, "BasicIntO::operator-=()");
    return *this;
}

BasicIntO& BasicIntO::operator-=(uint32_t x) {
    const char* function = "BasicIntO::operator-=()";
    if (L_ == 1 && words_[0] < x) throw InvalidParametersException(function, "A negative value was encountered.");
    if (L_ == 1 && words_[0] == x) throw InvalidParametersException(function, "Zero was encountered.");
    sub_1(words_, words_, L_, x);
    set_length(L_, function);
    return *this;
}

uint32_t BasicIntO::div(uint32_t x) {
    const char* function = "BasicIntO::div()";
    if (x == 0) throw ArithmeticException(function, "Divide by zero.");
    // A quotient of zero would leave an invalid BasicInt; refuse before touching the value.
    if (L_ == 1 && words_[0] < x) throw InvalidParametersException(function, "Zero was encountered.");
    uint64_t r = 0;
    for (uint64_t i = L_; i-- > 0;) {
        const uint64_t n = (r << 32) | words_[i];
        words_[i] = uint32_t(n / x);
        r = n % x;
    }
    if (words_[L_ - 1] == 0) --L_;
    return uint32_t(r);
}

std::string BasicIntO::to_string() const {
    if (L_ > to_string_warning_words) {
        Console::warning("BasicIntO::to_string(): Performance Warning");
        Console::warning("    Converting a " + std::to_string(L_) + "-word number using the O(n^2) algorithm.");
    }
    // Peel off base-10^9 digits from the bottom of a working copy.
    std::vector<uint32_t> work(words_, words_ + L_);
    std::vector<uint32_t> chunks;
    uint64_t n = L_;
    while (n > 0) {
        uint64_t r = 0;
        for (uint64_t i = n; i-- > 0;) {
            const uint64_t v = (r << 32) | work[i];
            work[i] = uint32_t(v / 1000000000u);
            r = v % 1000000000u;
        }
        chunks.push_back(uint32_t(r));
        while (n > 0 && work[n - 1] == 0) --n;
    }
    std::string text = std::to_string(chunks.back());
    for (size_t i = chunks.size() - 1; i-- > 0;) {
        const std::string part = std::to_string(chunks[i]);
        text.append(9 - part.size(), '0');
        text += part;
    }
    return text;
}

}  // namespace qmp
