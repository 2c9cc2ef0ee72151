meta:
  id: klog
  title: Kestrav log
  file-extension: klog
  endian: le
doc: |
  A log that is not scrambled: a stream header and records up to the end.

  The list of records ends with the first one that is not sound: with a damaged header, or cut off.
  `is_sound` of the last record in the list tells. A payload's checksum, the XOR of its bytes, is
  left to the reader.

  A scrambled log (header_key or data_key is not 0) needs its keys taken off first: each byte of a
  record's header is XORed with (header_key + index) mod 256, each of its payload with
  (data_key + index) mod 256, and with 1 where that gives 0. A key that depends on the place in a
  list cannot be said here.
seq:
  - id: header
    type: stream_header
  - id: records
    type: record
    if: not header.is_scrambled and not _io.eof
    repeat: until
    repeat-until: _io.eof or not _.is_sound
types:
  stream_header:
    seq:
      - id: magic
        contents: 'LOG:'
      - id: start_time
        type: u4
        doc: Seconds since 1970-01-01 UTC.
      - id: client_selection
        type: u2
        doc: Bit n stands for client id n; bit 15 set may mean that there are higher ones.
      - id: header_key
        type: u1
      - id: data_key
        type: u1
      - id: recording_duration
        type: u4
        doc: Milliseconds; 0 until the recording is stopped.
      - id: stream_length
        type: u4
        doc: Bytes of the whole log; 0 until the recording is stopped.
      - id: clock_rate
        type: u4
        doc: Ticks a second of the clock of the time stamps.
      - id: start_clock
        type: u4
        doc: That clock at the start of the recording.
      - id: reserved
        size: 100
    instances:
      is_scrambled:
        value: header_key != 0 or data_key != 0
  record:
    seq:
      - id: header
        type: record_header
        size: 20
        if: has_header
      - id: rest
        size-eos: true
        if: not has_header
        doc: Fewer bytes than a header has; the log is cut off here.
      - id: payload
        size: header.payload_size
        type:
          switch-on: header.kind
          cases:
            0xc04b0: dictionary
            0xc0086: extended_selection
        if: is_sound
    instances:
      has_header:
        value: _io.size - _io.pos >= 20
      is_sound:
        value: >-
          has_header and header.marker == 0x4c and header.is_checksum_right
          and header.payload_size > 0 and header.payload_size <= _io.size - _io.pos
  record_header:
    seq:
      - id: marker
        type: u1
      - id: header_checksum
        type: u1
      - id: payload_checksum
        type: u1
      - id: reserved
        type: u1
      - id: index
        type: u4
        doc: 0 for the first record, one more for each further one.
      - id: client_id
        type: u2
      - id: data_id
        type: u2
      - id: time_stamp
        type: u4
        doc: Of the recorder's clock, milliseconds.
      - id: payload_size
        type: u4
    instances:
      raw:
        pos: 0
        size: 20
      is_checksum_right:
        value: >-
          (raw[2] ^ raw[3] ^ raw[4] ^ raw[5] ^ raw[6] ^ raw[7] ^ raw[8] ^ raw[9] ^ raw[10]
          ^ raw[11] ^ raw[12] ^ raw[13] ^ raw[14] ^ raw[15] ^ raw[16] ^ raw[17] ^ raw[18] ^ raw[19]) == header_checksum
      kind:
        value: client_id * 0x10000 + data_id
        doc: Which of the recorder's own records it is, if any.
  dictionary:
    doc: Which client id belongs to which string id; client 12, data id 1200.
    seq:
      - id: num_entries
        type: u4
        doc: For information; the entries go on to the end.
      - id: entries
        type: entry
        repeat: eos
    types:
      entry:
        seq:
          - id: string_id
            type: strz
            encoding: UTF-8
          - id: client_id
            type: strz
            encoding: ASCII
            doc: Decimal digits.
  extended_selection:
    doc: The selected client ids from 16 on; client 12, data id 134.
    seq:
      - id: selection
        type: u8
        doc: Bit n stands for client id n + 16.
