// The bytes of a plain log, made without the tool.
import { Buffer } from "node:buffer";

const xor = (bytes) => bytes.reduce((sum, byte) => sum ^ byte, 0);

export class LogBuilder {
  constructor(startClock = 0) {
    this.header = Buffer.alloc(128);
    this.header.write("LOG:");
    this.header.writeUInt32LE(1_700_000_000, 4);
    this.header.writeUInt32LE(1000, 20);
    this.header.writeUInt32LE(startClock, 24);
    this.parts = [];
    this.index = 0;
  }

  record(client, dataId, ms, payload) {
    const body = Buffer.from(payload);
    const head = Buffer.alloc(20);
    head[0] = 0x4c;
    head[2] = xor(body);
    head.writeUInt32LE(this.index++, 4);
    head.writeUInt16LE(client, 8);
    head.writeUInt16LE(dataId, 10);
    head.writeUInt32LE(ms, 12);
    head.writeUInt32LE(body.length, 16);
    head[1] = xor(head.subarray(2));
    return this.raw(Buffer.concat([head, body]));
  }

  raw(bytes) {
    this.parts.push(Buffer.from(bytes));
    return this;
  }

  dictionary(names, ms = 0) {
    const entries = Object.entries(names).map(([name, id]) =>
      Buffer.concat([Buffer.from(name), Buffer.from([0]), Buffer.from(`${id}\0`)]));
    const count = Buffer.alloc(4);
    count.writeUInt32LE(entries.length);
    return this.record(12, 1200, ms, Buffer.concat([count, ...entries]));
  }

  build() {
    const bytes = Buffer.concat([this.header, ...this.parts]);
    bytes.writeUInt32LE(bytes.length, 16);
    return bytes;
  }
}
