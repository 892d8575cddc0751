// BasicInt: a small positive integer on 32-bit words (little-endian), for term values, counters
// and exponents that are too large for a machine word but far too small for the big types.
// Zero is not a valid BasicInt: constructing one from 0, or an operation whose result is zero,
// throws qmp::InvalidParametersException "Zero was encountered.".
//   BasicIntR: words, length and capacity in caller-given storage, with the three-operand
//     operations; a result longer than the capacity throws qmp::BufferTooSmallException, and a
//     product over its own operand needs storage it does not have ("Invalid Function
//     Parameters:   " ...). An operand of length 0 (never set) is an invalid parameter too.
//   BasicIntO: owns its storage, obtained from a WordAllocator and given back on destruction;
//     it starts with 16 bytes (four words) and grows by doubling when an operation needs it,
//     and adds the in-place operations and the decimal text.
#pragma once

#include <cstdint>
#include <string>

namespace qmp {

// Where a BasicIntO gets its storage. The default one is the process heap.
class WordAllocator {
public:
    virtual ~WordAllocator() = default;
    virtual void* allocate(uint64_t size_bytes) = 0;
    virtual void deallocate(void* ptr, uint64_t size_bytes) noexcept = 0;

    static WordAllocator& heap();
};

class BasicIntR {
public:
    BasicIntR(uint32_t* words, uint64_t capacity_words) : words_(words), capacity_(capacity_words) {}
    BasicIntR(const BasicIntR&) = delete;
    BasicIntR& operator=(const BasicIntR&) = delete;
    virtual ~BasicIntR() = default;

    const uint32_t* words() const noexcept { return words_; }
    uint64_t length() const noexcept { return L_; }
    uint64_t capacity() const noexcept { return capacity_; }
    bool fits_u64() const noexcept { return L_ <= 2; }
    uint64_t to_u64() const noexcept;

    // this = A + B, A - B (a result below zero throws "A negative value was encountered."),
    // A^2, A * B, A * x.
    void set_add(const BasicIntR& A, const BasicIntR& B);
    void set_sub(const BasicIntR& A, const BasicIntR& B);
    void set_sqrB(const BasicIntR& A);
    void set_mulB(const BasicIntR& A, const BasicIntR& B);
    void set_mulB(const BasicIntR& A, uint32_t x);

    // Three-way comparison: -1, 0 or 1.
    static int compare(const BasicIntR& A, const BasicIntR& B);

protected:
    // Makes room for n_words words, keeping the value; the plain form can only refuse
    // (BufferTooSmallException naming `function`, sizes in words).
    virtual void reserve(uint64_t n_words, const char* function);
    // Fresh storage for a product that cannot be formed over its own operand, and its
    // adoption once the product is complete. The plain form has none and refuses with
    // "Invalid Function Parameters:   " followed by the reason.
    virtual uint32_t* fresh_storage(uint64_t n_words, const char* function);
    virtual void adopt_storage(uint32_t* words, uint64_t capacity_words);
    // Sets the length to the normalized n_words; a zero result throws "Zero was encountered.".
    void set_length(uint64_t n_words, const char* function);
    void check_operand(const BasicIntR& x, const char* function) const;
    void add_into(const BasicIntR& A, const BasicIntR& B, const char* function);
    void sub_into(const BasicIntR& A, const BasicIntR& B, const char* function);

    uint32_t* words_;
    uint64_t L_ = 0;
    uint64_t capacity_;
};

class BasicIntO final : public BasicIntR {
public:
    explicit BasicIntO(uint64_t x, WordAllocator& allocator = WordAllocator::heap());
    explicit BasicIntO(const BasicIntR& x, WordAllocator& allocator = WordAllocator::heap());
    BasicIntO(const BasicIntO& x) : BasicIntO(static_cast<const BasicIntR&>(x), x.allocator_) {}
    BasicIntO& operator=(const BasicIntO& x) {
        set_BasicInt(x);
        return *this;
    }
    ~BasicIntO() override;

    void set_BasicInt(const BasicIntR& x);
    BasicIntO& operator+=(const BasicIntR& x);
    BasicIntO& operator+=(uint32_t x);
    // A result below zero throws InvalidParametersException "A negative value was encountered.".
    BasicIntO& operator-=(const BasicIntR& x);
    BasicIntO& operator-=(uint32_t x);
    // this /= x in place by hardware division from the top word down; returns the remainder.
    // x = 0 throws ArithmeticException "Divide by zero.".
    uint32_t div(uint32_t x);

    // Decimal text by repeated division by 10^9, quadratic in the length. Above
    // to_string_warning_words a performance warning goes to the console first: radix
    // conversion is the tool for numbers that large (2048 words are ~19700 digits, where the
    // quadratic loop starts to cost milliseconds).
    std::string to_string() const;
    static constexpr uint64_t to_string_warning_words = 2048;
    static constexpr uint64_t initial_words = 4;

protected:
    void reserve(uint64_t n_words, const char* function) override;
    uint32_t* fresh_storage(uint64_t n_words, const char* function) override;
    void adopt_storage(uint32_t* words, uint64_t capacity_words) override;

private:
    WordAllocator& allocator_;
};

}  // namespace qmp
