// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Reads recordings by MCAP's own library and decodes every message by Foxglove's, with all CRCs checked, and prints
// what is in them as JSON.
//   node read_all.mjs FILE...
import { open } from "node:fs/promises";
import { createHash } from "node:crypto";
import { McapIndexedReader, McapStreamReader } from "@mcap/core";
import { parse } from "@foxglove/rosmsg";
import { MessageReader } from "@foxglove/rosmsg2-serialization";
import { decompress } from "fzstd";

const decompressHandlers = { zstd: (bytes, size) => decompress(bytes, new Uint8Array(Number(size))) };

async function readAll(path) {
  const file = await open(path);
  const size = BigInt((await file.stat()).size);
  const readable = {
    size: async () => size,
    read: async (offset, length) => {
      const bytes = new Uint8Array(Number(length));
      const { bytesRead } = await file.read(bytes, 0, bytes.length, Number(offset));
      if (bytesRead !== bytes.length) throw new Error(`${path} ends before byte ${offset + length}`);
      return bytes;
    },
  };
  const reader = await McapIndexedReader.Initialize({ readable, decompressHandlers });
  const decoders = new Map();
  const channels = {};
  let last = 0n;
  for await (const message of reader.readMessages({ validateCrcs: true })) {
    const channel = reader.channelsById.get(message.channelId);
    const schema = reader.schemasById.get(channel.schemaId);
    if (schema.encoding !== "ros2msg" || channel.messageEncoding !== "cdr")
      throw new Error(`${channel.topic} is not what ROS 2 writes`);
    if (message.logTime < last) throw new Error(`${channel.topic}: the log time goes back`);
    last = message.logTime;
    if (!decoders.has(schema.id))
      decoders.set(schema.id, new MessageReader(parse(new TextDecoder().decode(schema.data), { ros2: true })));
    const decoded = decoders.get(schema.id).readMessage(message.data);
    const known = (channels[channel.topic] ??= { type: schema.name, messages: 0, hash: createHash("sha256") });
    known.messages++;
    if (decoded.data?.byteLength) known.hash.update(decoded.data);
    if (decoded.encoding !== undefined && decoded.step * decoded.height !== decoded.data.length)
      throw new Error(`${channel.topic}: the picture has ${decoded.data.length} bytes`);
  }
  for (const channel of Object.values(channels)) channel.hash = channel.hash.digest("hex");
  const attachments = {};
  for await (const attachment of reader.readAttachments({ validateCrcs: true }))
    attachments[attachment.name] = attachment.data.byteLength;
  const metadata = {};
  for await (const one of reader.readMetadata()) metadata[one.name] = Object.fromEntries(one.metadata);
  const statistics = {
    messages: Number(reader.statistics.messageCount),
    chunks: reader.statistics.chunkCount,
    indexed: reader.chunkIndexes.filter((chunk) => chunk.messageIndexOffsets.size > 0).length,
  };

  // The same file from front to back, as a player reads it from a pipe; checks the CRC of the data section too.
  const stream = new McapStreamReader({ decompressHandlers, validateCrcs: true });
  stream.append(await readable.read(0n, size));
  let streamed = 0;
  for (let record = stream.nextRecord(); record; record = stream.nextRecord()) if (record.type === "Message") streamed++;
  await file.close();
  if (!stream.done()) throw new Error(`${path} goes on behind its end`);
  return { profile: reader.header.profile, channels, attachments, metadata, statistics, streamed };
}

const found = {};
for (const path of process.argv.slice(2)) found[path] = await readAll(path);
console.log(JSON.stringify(found, null, 2));
