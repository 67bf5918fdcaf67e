// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Decodes payloads that ros_receiver has kept by Foxglove's decoder, and compares them with the worker's frames and with
// what another decoder has found.
//   node read_payloads.mjs DEFINITIONS FOLDER RECEIVED_JSON
import { existsSync, readdirSync, readFileSync } from "node:fs";
import { parse } from "@foxglove/rosmsg";
import { MessageReader, MessageWriter } from "@foxglove/rosmsg2-serialization";

const [definitions, folder, received] = process.argv.slice(2);
const found = JSON.parse(readFileSync(received, "utf8"));
const texts = new Map();
for (const name of readdirSync(definitions))
  for (const file of readdirSync(`${definitions}/${name}`))
    texts.set(`${name}/${file.replace(".msg", "")}`, readFileSync(`${definitions}/${name}/${file}`, "utf8"));

// The type, then all others, as they stand in a schema.
function definitionOf(type) {
  const others = [...texts].filter(([name]) => name !== type);
  const text = [texts.get(type), ...others.map(([name, other]) => `MSG: ${name}\n${other}`)].join(`\n${"=".repeat(80)}\n`);
  return parse(text, { ros2: true });
}

function expect(what, good) {
  if (!good) throw new Error(what);
}

const same = (one, other) => JSON.stringify([...one]) === JSON.stringify([...other]);
const stampOf = ({ stamp }) => BigInt(stamp.sec) * 1000000000n + BigInt(stamp.nsec);

// The worker's frame; nothing when the worker has given it to others only.
function planeOf(header, kind) {
  const path = `${folder}/${stampOf(header)}.${kind}`;
  return existsSync(path) ? readFileSync(path) : undefined;
}

function sameImage(message, kind) {
  expect("320 x 240", message.width === 320 && message.height === 240 && message.step === 640 && !message.is_bigendian);
  expect("its encoding", message.encoding === (kind === "depth" ? "16UC1" : "mono16"));
  expect("its frame", message.header.frame_id === "left_optical_frame");
  const plane = planeOf(message.header, kind);
  expect("its pixels", !plane || plane.equals(Buffer.from(message.data)));
  return Boolean(plane);
}

function sameInfo(message) {
  const { info } = found;
  expect("the lens", same(message.k, info.k) && same(message.p, info.p) && same(message.d, info.d));
  expect("the model", message.distortion_model === info.model && message.width === 320 && message.height === 240);
  return true;
}

function samePoints(message) {
  const depth = planeOf(message.header, "depth"), amplitude = planeOf(message.header, "amplitude");
  expect("the fields", message.fields.map(({ name, offset, datatype }) => `${name}${offset}:${datatype}`).join() === "x0:7,y4:7,z8:7,intensity12:7");
  expect("the layout", message.width === 320 && message.height === 240 && message.point_step === 16 && message.is_dense === false);
  if (!depth || !amplitude) return false;
  const points = new DataView(message.data.buffer, message.data.byteOffset, message.data.byteLength);
  for (let i = 0; i < 320 * 240; ++i) {
    const z = points.getFloat32(16 * i + 8, true), mm = depth.readUInt16LE(2 * i);
    expect(`point ${i}`, mm ? Math.abs(1000 * z - mm) < 0.01 : Number.isNaN(z));
    expect(`its intensity`, points.getFloat32(16 * i + 12, true) === amplitude.readUInt16LE(2 * i));
  }
  return true;
}

function samePoses(message) {
  const [{ header, child_frame_id: child, transform }] = message.transforms, [pose] = found.transforms;
  const { translation: t, rotation: r } = transform;
  expect("the pose", header.frame_id === pose.parent && child === pose.child && same([t.x, t.y, t.z, r.x, r.y, r.z, r.w], pose.values));
  return true;
}

function sameHealth(message) {
  const [status] = message.status, values = Object.fromEntries(status.values.map(({ key, value }) => [key, value]));
  expect("the camera", status.name === "vqd: left" && status.hardware_id === "24061100000001" && status.level <= 3);
  expect("its temperature", Number(values.temperature) > 0);
  return true;
}

const TOPICS = {
  "/left/depth/image_rect": ["sensor_msgs/Image", (message) => sameImage(message, "depth")],
  "/left/amplitude/image_rect": ["sensor_msgs/Image", (message) => sameImage(message, "amplitude")],
  "/left/depth/camera_info": ["sensor_msgs/CameraInfo", sameInfo],
  "/left/amplitude/camera_info": ["sensor_msgs/CameraInfo", sameInfo],
  "/left/points": ["sensor_msgs/PointCloud2", samePoints],
  "/tf_static": ["tf2_msgs/TFMessage", samePoses],
  "/diagnostics": ["diagnostic_msgs/DiagnosticArray", sameHealth],
};

for (const [topic, [type, compare]] of Object.entries(TOPICS)) {
  const definition = definitionOf(type);
  const reader = new MessageReader(definition), writer = new MessageWriter(definition);
  const files = found.payloads[topic] ?? [];
  let compared = 0;
  for (const file of files) {
    const payload = readFileSync(`${folder}/${file}`);
    try {
      const message = reader.readMessage(payload);
      compared += compare(message) ? 1 : 0;
      // Written again it has the same bytes, but for those that DDS adds up to a whole word, so none was left out.
      const again = Buffer.from(writer.writeMessage(message));
      expect("the same bytes again", again.equals(payload.subarray(0, again.length)) && payload.length - again.length < 4);
    } catch (error) {
      throw new Error(`${topic}, ${file}: ${error.message}`);
    }
  }
  expect(`${topic}: nothing to compare in ${files.length} messages`, compared > 0);
  console.log(`${topic}: ${files.length} messages, ${compared} compared`);
}
