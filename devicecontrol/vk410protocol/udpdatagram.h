// SPDX-License-Identifier: MIT
#pragma once
// The reader of one received datagram: walks its attributes, converts them to host order in place and tells
// where their fields lie.
#include <QByteArray>
#include <QMetaType>
#include <QtGlobal>
#include <memory>

/// The kinds of trace that the library knows. The reader holds any 16-bit value in this type, known or not.
enum TRACE_TAG : qint32 {
    TAG_101 = 101,
    TAG_201 = 201,
    TAG_301 = 301,
    TAG_401 = 401,
    TAG_501 = 501,
    TAG_601 = 601,
    TAG_701 = 701,
    TAG_801 = 801,
    TAG_901 = 901,
    TAG_1001 = 1001,
    TAG_1101 = 1101,
    TAG_1201 = 1201,
    TAG_1301 = 1301,
    TAG_1401 = 1401,
    TAG_1601 = 1601,
    TAG_1801 = 1801,
    TAG_1901 = 1901,
    TAG_2401 = 2401,
    TAG_2501 = 2501,
    TAG_5001 = 5001,
    TAG_5101 = 5101,
    TAG_5201 = 5201,
    TAG_5301 = 5301,
};

/// The header of an attribute in its normal form, seen through a pointer into the datagram; the reader never
/// copies it. The numbers are those of an attribute that `UdpDatagram::NextAttribute` has stepped to.
class Q_DECL_EXPORT UdpDatagramAttribute {
public:
    /// Kind of trace.
    [[nodiscard]] quint16 Tag() const;
    /// Bytes that follow the first four of the attribute.
    [[nodiscard]] quint16 Length() const;
    /// Items of every selected field.
    [[nodiscard]] quint16 Count() const;
    /// As received.
    [[nodiscard]] quint8 ChannelNumber() const;
    /// Bytes of the optional header, 0: none.
    [[nodiscard]] quint8 OptHeaderLength() const;
    /// Which fields follow, and in which byte order.
    [[nodiscard]] quint32 SelectorFlags() const;
    /// First byte of the optional header, or of the trace data when there is none.
    [[nodiscard]] unsigned char* OptHeader() { return m_bytes + sizeof m_bytes; }

private:
    // Bytes, not numbers: attributes may lie on odd addresses.
    unsigned char m_bytes[12];
};

/// The header of an attribute in its extended form (tags 5001, 5101, 5301), seen through a pointer into the
/// datagram. The numbers are those of an attribute whose data pointers are set up.
class Q_DECL_EXPORT UdpDatagramExtAttribute {
public:
    /// Kind of trace.
    [[nodiscard]] quint16 Tag() const;
    /// The attribute occupies 24 bytes more.
    [[nodiscard]] quint32 Length() const;
    /// All 32 bits; only the low 16 count the items of each field.
    [[nodiscard]] quint32 Count() const;
    /// As received.
    [[nodiscard]] quint32 ChannelNumber() const;
    /// Bytes of the optional header, 0: none.
    [[nodiscard]] quint32 OptHeaderLength() const;
    /// Which fields follow, and in which byte order.
    [[nodiscard]] quint32 SelectorFlags() const;

private:
    unsigned char m_bytes[60];
};

/// Where the fields of an attribute lie. Null: the attribute does not carry the field.
/// Shape:  every field holds the attribute's count of items, packed; addresses need not be aligned to their
/// type,
///         so load and store items by `memcpy`.
/// Owner:  all point into the datagram, except `selBit17`, an array of its own that belongs to the holder of
/// the
///         record.
struct DataPointers {
    short* selBit0; // tag 1301: 32-bit items; tag 401: bytes as they came

    /// Fields in the declared order; the numbers are those of the selector bits.
    qint32* selBit1;
    short* selBit2;
    short* selBit3;
    short* selBit4;
    short* selBit5;
    qint32* selBit6;
    qint32* selBit7;
    qint32* selBit8;
    short* selBit9;
    qint32* selBit10;
    short* selBit16;
    quint64* selBit17; // the 32-bit items, zero-extended; allocated with new[]
    short* selBit11;
    short* selBit12;
    short* selBit13;
    short* selBit14;
    short* selBit18;
    short* selBit15;
    short* selBit19;
    short* selBit20;
    qint32* selBit21;
    unsigned char* dataEnd; // first byte behind the last selected field; null for tags 401 and 1301
    short* selBit23;
    UdpDatagramExtAttribute* extHeader; // extended form only
    unsigned char* extOptHeader;        // extended form only: first byte behind that header
};
static_assert(sizeof(DataPointers) == 26 * sizeof(void*));

/// One received datagram. It converts in place, so each attribute's `SetupDataPointers` and `SetupOptHeader`
/// are called once at most, in the order: construct, `IsValid`, then for each `NextAttribute` that is true
/// `CurrentAttributeValid`, `SetupDataPointers`, `SetupOptHeader`. Nothing outside the received bytes is ever
/// read or written.
/// Owner:  owns its bytes; whoever holds the datagram owns it.
/// Thread: one at a time.
class Q_DECL_EXPORT UdpDatagram {
public:
    /// Takes the bytes over. Two spare bytes are kept behind the last one, for the trace whose 26th value
    /// lies there: bytes that have room for them (`reserve(size + 2)`) and are not shared are not copied.
    explicit UdpDatagram(std::unique_ptr<QByteArray> bytes);
    UdpDatagram(const UdpDatagram&) = delete;
    UdpDatagram& operator=(const UdpDatagram&) = delete;
    ~UdpDatagram();

    /// Whether the datagram begins with the magic, in either byte order.
    [[nodiscard]] bool IsValid() const;

    /// The sequence number as it lies in the datagram, that is in network order; 0 when the datagram is too
    /// short.
    [[nodiscard]] unsigned short GetSeqNumber() const;

    /// Whether the datagram is long enough (ten bytes) to hold a sequence number.
    [[nodiscard]] bool HasSeqNumber() const;

    /// Steps to the next attribute and turns a normal header to host order.
    /// Result: false at the end, also where no further header fits.
    /// Errors: an extended attribute that does not fit is traced under mask 0x20.
    bool NextAttribute();

    /// The current attribute; null before the first `NextAttribute`.
    [[nodiscard]] UdpDatagramAttribute* CurrentAttribute() { return m_current; }

    /// Where the next attribute begins, without stepping; null when that lies outside the datagram.
    [[nodiscard]] UdpDatagramAttribute* GetNextAttribute();

    /// Whether the current tag is a known one.
    [[nodiscard]] bool CurrentAttributeValid() const;

    /// The current tag; 5302 before the first attribute.
    [[nodiscard]] TRACE_TAG CurrentTag() const { return static_cast<TRACE_TAG>(m_currentTag); }
    /// The channel number of the current attribute, as received; 0 before the first one.
    [[nodiscard]] unsigned int CurrentChannelNumber() const { return m_currentChannel; }

    /// Whether the current attribute has an optional header.
    [[nodiscard]] bool OptHeaderAvailable() const { return m_optHeaderAvailable; }

    /// Fills `dp` for the current attribute and turns its fields to host order.
    /// Errors: NQException when the selector word is refused; fields of lower bits are set then, `dataEnd`
    ///         is null.
    ///         Where something would leave the datagram no item is converted, all of `dp` is null,
    ///         `Truncated` is true and the walk is over.
    /// Owner:  `selBit17` belongs to the holder of `dp` (delete[]); the array of an earlier call
    ///         is not released here.
    void SetupDataPointers(DataPointers* dp);

    /// Sets all fields of `dp` to null; releases nothing.
    void ResetDataPointers(DataPointers* dp) const;

    /// Turns the optional header to host order where the library does that (tag 301 without bit 29).
    void SetupOptHeader();

    /// Whether the current attribute's length fits into what is left, with two bytes of tolerance.
    [[nodiscard]] bool ValidateDataForVK410() const;

    /// Whether the last `SetupDataPointers` found that the attribute leaves the datagram.
    [[nodiscard]] bool Truncated() const { return m_truncated; }

    /// The first byte: as received, until attributes are stepped to and set up.
    [[nodiscard]] const unsigned char* Bytes() const { return m_header; }

    /// Bytes received.
    [[nodiscard]] quint32 Size() const { return m_size; }

    /// Where the current attribute's header begins, from the start of the datagram.
    [[nodiscard]] quint32 CurrentOffset() const { return m_currentOffset; }

    /// Bytes of the current attribute inside the datagram, by its own length field.
    [[nodiscard]] quint32 CurrentSize() const { return m_currentSize; }

private:
    [[nodiscard]] bool AttributeHasExtendedFormat(unsigned short tag) const;
    void ChangeByteOrderShort(short* items, int n) const;
    void ChangeByteOrderLong(long* items, int n) const;
    [[nodiscard]] bool isVK410VersionWithIssues() const;

    bool stepNormal();
    bool stepExtended();
    // What an attribute carries: items per field, and which fields.
    struct Selection {
        quint32 count;
        quint32 flags;
    };
    Selection setupExtendedHeader(DataPointers* dp);
    void setupUnselected(DataPointers* dp, Selection selection);
    void setupSelected(DataPointers* dp, Selection selection);
    void endWalk(DataPointers* dp);
    [[nodiscard]] bool inside(quint64 offset, quint64 size) const
    {
        return offset <= m_size && size <= m_size - offset;
    }
    void setupField(DataPointers* dp, unsigned bit, unsigned char* items, int count, bool hostOrder) const;
    void repeatLastItemBehindEnd(const unsigned char* fieldEnd) const;

    std::unique_ptr<QByteArray> m_buffer;
    qint32 m_remaining = 0;
    unsigned char* m_header = nullptr;
    UdpDatagramAttribute* m_current = nullptr;
    quint64 m_nextOffset = 0; // offsets, not pointers: the cursor may leave the datagram
    quint64 m_dataOffset = 0;
    quint32 m_currentTag = 0;
    quint32 m_currentChannel = 0;
    quint32 m_size = 0;
    quint32 m_currentOffset = 0;
    quint32 m_currentSize = 0;
    bool m_optHeaderAvailable = false;
    bool m_truncated = false;
};

Q_DECLARE_METATYPE(UdpDatagram*)
