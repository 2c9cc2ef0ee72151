// Reads an MCAP file as its own library does and prints the messages, one a line, with tabs
// between index, topic, log time, publish time, sequence and the payload in hex.
//
// usage: read.mjs stream FILE              every message, in the order of the file
//        read.mjs seek FILE FROM TO TOPIC  those of a topic and a time (ns), by the index
//        read.mjs summary FILE             what the summary says, as JSON
import { open, readFile } from "node:fs/promises";
import { McapIndexedReader, McapStreamReader } from "@mcap/core";

const decoder = new TextDecoder("utf-8", { fatal: true });

function payloadHex(message) {
  if ("payload_hex" in message === "text" in message) throw new Error("two payloads, or none");
  const hex = message.payload_hex ?? Buffer.from(message.text, "utf-8").toString("hex");
  if (hex.length !== 2 * message.size) throw new Error(`size ${message.size}, payload ${hex}`);
  return hex;
}

function line(channel, record) {
  const message = JSON.parse(decoder.decode(record.data));
  if (channel.messageEncoding !== "json") throw new Error(channel.messageEncoding);
  return [message.index, channel.topic, record.logTime, record.publishTime, record.sequence,
    payloadHex(message)].join("\t");
}

async function stream(path) {
  const reader = new McapStreamReader({ validateCrcs: true });
  reader.append(await readFile(path));
  const schemas = new Map();
  const channels = new Map();
  const lines = [];
  for (let record; (record = reader.nextRecord()); ) {
    if (record.type === "Schema") {
      JSON.parse(decoder.decode(record.data));
      schemas.set(record.id, record);
    } else if (record.type === "Channel") {
      if (!schemas.has(record.schemaId)) throw new Error(`no schema ${record.schemaId}`);
      channels.set(record.id, record);
    } else if (record.type === "Message") {
      lines.push(line(channels.get(record.channelId), record));
    }
  }
  if (!reader.done()) throw new Error("the file does not end");
  return lines;
}

async function openIndexed(path) {
  const file = await open(path);
  const { size } = await file.stat();
  const readable = {
    size: async () => BigInt(size),
    read: async (offset, length) => {
      const bytes = new Uint8Array(Number(length));
      const { bytesRead } = await file.read(bytes, 0, bytes.length, Number(offset));
      if (bytesRead !== bytes.length) throw new Error("beyond the end");
      return bytes;
    },
  };
  return await McapIndexedReader.Initialize({ readable });
}

async function seek(path, from, to, topic) {
  const reader = await openIndexed(path);
  const range = { startTime: BigInt(from), endTime: BigInt(to), topics: [topic] };
  const lines = [];
  for await (const record of reader.readMessages({ ...range, validateCrcs: true })) {
    lines.push(line(reader.channelsById.get(record.channelId), record));
  }
  return lines;
}

async function summary(path) {
  const { statistics, channelsById, schemasById, chunkIndexes } = await openIndexed(path);
  const channels = {};
  for (const { id, topic, schemaId, metadata } of channelsById.values()) {
    channels[topic] = {
      messages: Number(statistics.channelMessageCounts.get(id)),
      schema: schemasById.get(schemaId).encoding,
      metadata: Object.fromEntries(metadata),
    };
  }
  return [JSON.stringify({
    messages: Number(statistics.messageCount),
    chunks: statistics.chunkCount,
    chunk_indexes: chunkIndexes.length,
    first: String(statistics.messageStartTime),
    last: String(statistics.messageEndTime),
    channels,
  })];
}

const [command, ...rest] = process.argv.slice(2);
const lines = await { stream, seek, summary }[command](...rest);
process.stdout.write(lines.map((text) => text + "\n").join(""));
