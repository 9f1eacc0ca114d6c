'use strict';
// Tezcore's bridge to opennurbs (the rhino3dm package, opennurbs compiled to
// WebAssembly). TezBrepRhino starts one of these per application and talks to
// it over stdin and stdout in frames:
//
//   request   u32 op, u32 length, payload
//   reply     u32 status (0 ok, 1 failed), u32 length, payload (on failure
//             the message, UTF-8)
//
// All numbers are little-endian. Operations:
//
//   1 READ    payload: the bytes of a 3DM file. Reply: the model's summary
//             and every brep as NURBS (see writeModel below).
//   2 WRITE   payload: i32 version, 3DM bytes. Reply: the same model written
//             again as a 3DM file of that version (0: the newest).
//   3 SAMPLE  payload: i32 version, the name of a built-in model (UTF-8).
//             Reply: 3DM bytes. Used by the tests and the benchmark.
//
// rhino3dm gives faces, edges and vertices, but neither loops nor trims: the
// edges of each face come from duplicateFace, and the trims are rebuilt by
// the kernel by pulling the edges back onto the face's surface.
//
// stdout carries frames only: anything the library prints goes to stderr.
// The bridge ends when its stdin closes.

console.log = console.error;
console.info = console.error;
const rhino3dmFactory = require('rhino3dm');

const OP_READ = 1;
const OP_WRITE = 2;
const OP_SAMPLE = 3;

class Writer {
  constructor() {
    this.buffer = Buffer.alloc(1 << 16);
    this.length = 0;
  }
  reserve(n) {
    if (this.length + n <= this.buffer.length) return;
    let size = this.buffer.length * 2;
    while (size < this.length + n) size *= 2;
    const grown = Buffer.alloc(size);
    this.buffer.copy(grown, 0, 0, this.length);
    this.buffer = grown;
  }
  i32(v) { this.reserve(4); this.buffer.writeInt32LE(v | 0, this.length); this.length += 4; }
  u32(v) { this.reserve(4); this.buffer.writeUInt32LE(v >>> 0, this.length); this.length += 4; }
  f64(v) { this.reserve(8); this.buffer.writeDoubleLE(v, this.length); this.length += 8; }
  f64s(values) { for (const v of values) this.f64(v); }
  str(text) {
    const bytes = Buffer.from(text, 'utf8');
    this.u32(bytes.length);
    this.reserve(bytes.length);
    bytes.copy(this.buffer, this.length);
    this.length += bytes.length;
  }
  bytes() { return this.buffer.subarray(0, this.length); }
}

// opennurbs keeps order + count - 2 knots; the kernel's NURBS have the two
// end knots of the textbook form as well, repeated here.
function fullKnots(list) {
  return [list[0], ...list, list[list.length - 1]];
}

function writeCurve(w, curve) {
  // A straight edge needs no conversion, which costs more than the rest of
  // the edge's transfer.
  if (curve.isLinear(0)) {
    const d = curve.domain;
    const a = curve.pointAtStart, b = curve.pointAtEnd;
    w.i32(1); w.u32(2); w.u32(4);
    w.f64s([d[0], d[0], d[1], d[1]]);
    w.f64s(a); w.f64(1); w.f64s(b); w.f64(1);
    return;
  }
  const nurbs = curve.toNurbsCurve();
  const points = nurbs.points();
  const count = points.count;
  const knots = fullKnots(nurbs.knots().toList());
  w.i32(nurbs.degree);
  w.u32(count);
  w.u32(knots.length);
  w.f64s(knots);
  for (let i = 0; i < count; ++i) {
    const p = points.get(i); // homogeneous: x w, y w, z w, w
    const wt = p[3] !== 0 ? p[3] : 1;
    w.f64(p[0] / wt); w.f64(p[1] / wt); w.f64(p[2] / wt); w.f64(p[3]);
  }
  nurbs.delete();
}

function writeSurface(w, face) {
  const nurbs = face.toNurbsSurface();
  const points = nurbs.points();
  const nu = points.countU, nv = points.countV;
  const ku = fullKnots(nurbs.knotsU().toList());
  const kv = fullKnots(nurbs.knotsV().toList());
  w.i32(nurbs.degree(0)); w.i32(nurbs.degree(1));
  w.u32(nu); w.u32(nv);
  w.u32(ku.length); w.f64s(ku);
  w.u32(kv.length); w.f64s(kv);
  for (let i = 0; i < nu; ++i) {
    for (let j = 0; j < nv; ++j) {
      const p = points.get(i, j);
      const wt = p[3] !== 0 ? p[3] : 1;
      w.f64(p[0] / wt); w.f64(p[1] / wt); w.f64(p[2] / wt); w.f64(p[3]);
    }
  }
  nurbs.delete();
}

function midpoint(curve) {
  const d = curve.domain;
  return curve.pointAt(0.5 * (d[0] + d[1]));
}

// The edges of one face, as indices into the brep's edges: the face copied
// alone keeps exactly its own edges, which are found again by their middle
// points.
function faceEdges(face, edgeMids, scale) {
  const single = face.duplicateFace(false);
  const result = [];
  if (!single) return result;
  const edges = single.edges();
  const tolerance = 1e-7 * scale + 1e-9;
  for (let i = 0; i < edges.count; ++i) {
    const edge = edges.get(i);
    const m = midpoint(edge);
    let best = -1, bestDistance = Infinity;
    for (let k = 0; k < edgeMids.length; ++k) {
      const q = edgeMids[k];
      const dx = q[0] - m[0], dy = q[1] - m[1], dz = q[2] - m[2];
      const d = dx * dx + dy * dy + dz * dz;
      if (d < bestDistance) { bestDistance = d; best = k; }
    }
    if (best >= 0 && Math.sqrt(bestDistance) <= tolerance * 1e3) result.push(best);
    edge.delete();
  }
  single.delete();
  return result;
}

function identity() {
  return [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1];
}

function transformArray(xform) {
  const t = [];
  for (let r = 0; r < 4; ++r)
    for (let c = 0; c < 4; ++c) t.push(xform['m' + r + c]);
  return t;
}

function writeBrep(w, brep, xform) {
  w.f64s(xform);
  const vertices = brep.vertices();
  w.u32(vertices.count);
  for (let i = 0; i < vertices.count; ++i) w.f64s(vertices.get(i).location);
  const edges = brep.edges();
  const box = brep.getBoundingBox();
  const dx = box.max[0] - box.min[0], dy = box.max[1] - box.min[1], dz = box.max[2] - box.min[2];
  const scale = Math.sqrt(dx * dx + dy * dy + dz * dz) || 1;
  const mids = [];
  w.u32(edges.count);
  for (let i = 0; i < edges.count; ++i) {
    const edge = edges.get(i);
    mids.push(midpoint(edge));
    writeCurve(w, edge);
  }
  const faces = brep.faces();
  w.u32(faces.count);
  for (let i = 0; i < faces.count; ++i) {
    const face = faces.get(i);
    w.i32(face.orientationIsReversed ? 1 : 0);
    writeSurface(w, face);
    const own = faceEdges(face, mids, scale);
    w.u32(own.length);
    for (const e of own) w.i32(e);
  }
}

// Geometry that has a brep form: breps as they are, extrusions and surfaces
// converted. Null for anything else.
function asBrep(rh, geometry) {
  if (!geometry) return null;
  if (geometry instanceof rh.Brep) return geometry;
  if (geometry instanceof rh.Extrusion) return geometry.toBrep(false);
  if (geometry instanceof rh.Surface) return rh.Brep.createFromSurface(geometry);
  return null;
}

function read(rh, bytes) {
  const model = rh.File3dm.fromByteArray(bytes);
  if (!model) throw new Error('not a readable 3DM file');
  const objects = model.objects();
  const counts = { idefObjects: 0, breps: 0, brepsInIdef: 0, instanceRefs: 0, nonBreps: 0 };
  const direct = [];
  const references = [];
  for (let i = 0; i < objects.count; ++i) {
    const object = objects.get(i);
    const geometry = object.geometry();
    const inIdef = object.attributes().isInstanceDefinitionObject;
    if (inIdef) ++counts.idefObjects;
    const brep = asBrep(rh, geometry);
    if (brep) {
      ++counts.breps;
      if (inIdef) ++counts.brepsInIdef;
      else direct.push(brep);
    } else if (geometry instanceof rh.InstanceReference) {
      ++counts.instanceRefs;
      references.push(geometry);
    } else {
      ++counts.nonBreps;
    }
  }
  // The breps of each referenced definition, placed by the reference.
  const placed = [];
  const definitions = model.instanceDefinitions();
  for (const ref of references) {
    const idef = definitions.findId(ref.parentIdefId);
    if (!idef) continue;
    const xform = transformArray(ref.xform);
    const ids = idef.getObjectIds();
    for (const id of ids) {
      const object = objects.findId(id);
      const brep = object ? asBrep(rh, object.geometry()) : null;
      if (brep) placed.push([brep, xform]);
    }
  }
  let valid = 1;
  for (const brep of direct) if (!brep.isValid) valid = 0;
  const w = new Writer();
  w.i32(model.archiveVersion || 0);
  w.i32(valid);
  const settings = model.settings();
  w.f64(settings ? settings.modelAbsoluteTolerance || 0 : 0);
  w.i32(counts.breps); w.i32(counts.idefObjects); w.i32(counts.brepsInIdef);
  w.i32(counts.instanceRefs); w.i32(counts.nonBreps);
  w.u32(direct.length + placed.length);
  for (const brep of direct) writeBrep(w, brep, identity());
  for (const [brep, xform] of placed) writeBrep(w, brep, xform);
  model.delete();
  return w.bytes();
}

function write(rh, version, bytes) {
  const model = rh.File3dm.fromByteArray(bytes);
  if (!model) throw new Error('not a readable 3DM file');
  const options = new rh.File3dmWriteOptions();
  options.version = version;
  const out = model.toByteArrayOptions(options);
  model.delete();
  if (!out || out.length === 0) throw new Error('opennurbs wrote nothing for version ' + version);
  return Buffer.from(out);
}

// ---- built-in models ----

function box(rh, x0, y0, z0, x1, y1, z1) {
  return rh.Brep.createFromBox(new rh.Box(new rh.BoundingBox([x0, y0, z0], [x1, y1, z1])));
}

// A tube: radius 2 outside, 1 inside, 3 high, standing on the xy-plane.
function pipe(rh, cx, cy) {
  const circle = new rh.Circle(2.0);
  circle.center = [cx, cy, 0];
  const cylinder = new rh.Cylinder(circle, 3.0);
  return rh.Extrusion.createPipeExtrusion(cylinder, 1.0, true, true).toBrep(false);
}

// A plane trimmed by a closed cubic through six points around the origin.
function patch(rh, cx, cy) {
  const points = [];
  const radii = [2.0, 1.3, 2.2, 1.5, 2.4, 1.2];
  for (let i = 0; i < 6; ++i) {
    const a = (i / 6) * 2 * Math.PI;
    points.push([cx + radii[i] * Math.cos(a), cy + radii[i] * Math.sin(a), 0]);
  }
  const curve = rh.NurbsCurve.create(true, 3, points);
  return rh.Brep.createTrimmedPlane(rh.Plane.worldXY(), curve);
}

function sphere(rh, cx, cy) {
  return rh.Brep.createFromSphere(new rh.Sphere([cx, cy, 1], 1.0));
}

function sample(rh, version, name) {
  const model = new rh.File3dm();
  const objects = model.objects();
  const attributes = () => new rh.ObjectAttributes();
  const add = (brep) => {
    if (!brep) throw new Error('building the sample "' + name + '" failed');
    objects.addBrep(brep, attributes());
  };
  const many = /^many:(\d+)$/.exec(name);
  if (name === 'box') {
    add(box(rh, 0, 0, 0, 2, 3, 4));
  } else if (name === 'pipe') {
    add(pipe(rh, 0, 0));
  } else if (name === 'patch') {
    add(patch(rh, 0, 0));
  } else if (name === 'sphere') {
    add(sphere(rh, 0, 0));
  } else if (name === 'mixed') {
    // Breps beside a line and a point, which are counted but not shown.
    add(box(rh, 0, 0, 0, 2, 3, 4));
    add(pipe(rh, 6, 1.5));
    add(patch(rh, 12, 1.5));
    objects.addLine([0, -2, 0], [12, -2, 0]);
    objects.addPoint([0, 0, 6]);
  } else if (name === 'instances') {
    // One unit box in an instance definition, placed twice by references.
    const definitions = model.instanceDefinitions();
    const index = definitions.add('unit box', '', '', '', [0, 0, 0], [box(rh, 0, 0, 0, 1, 1, 1)],
                                  [attributes()]);
    const id = definitions.get(index).id;
    for (const [x, y] of [[5, 0], [0, 5]])
      objects.addInstanceObject(new rh.InstanceReference(id, rh.Transform.translationXYZ(x, y, 0)), attributes());
  } else if (many) {
    // Boxes (6 faces) and tubes (4 faces) in a row-major grid until the
    // faces reach the number asked for.
    const wanted = parseInt(many[1], 10);
    let faces = 0, k = 0;
    while (faces < wanted) {
      const x = (k % 10) * 6, y = Math.floor(k / 10) * 6;
      if (k % 2 === 0 || wanted - faces >= 6) {
        if (k % 2 === 0) { add(box(rh, x, y, 0, x + 3, y + 2, 2.5)); faces += 6; }
        else { add(pipe(rh, x + 2, y + 2)); faces += 4; }
      } else {
        add(pipe(rh, x + 2, y + 2)); faces += 4;
      }
      ++k;
    }
  } else {
    throw new Error('unknown sample "' + name + '"');
  }
  const options = new rh.File3dmWriteOptions();
  options.version = version;
  const out = model.toByteArrayOptions(options);
  model.delete();
  return Buffer.from(out);
}

// ---- frames ----

function reply(status, payload) {
  const header = Buffer.alloc(8);
  header.writeUInt32LE(status, 0);
  header.writeUInt32LE(payload.length, 4);
  process.stdout.write(Buffer.concat([header, payload]));
}

function handle(rh, op, payload) {
  try {
    if (op === OP_READ) return reply(0, read(rh, payload));
    if (op === OP_WRITE) return reply(0, write(rh, payload.readInt32LE(0), payload.subarray(4)));
    if (op === OP_SAMPLE) return reply(0, sample(rh, payload.readInt32LE(0), payload.subarray(4).toString('utf8')));
    reply(1, Buffer.from('unknown operation ' + op, 'utf8'));
  } catch (e) {
    reply(1, Buffer.from(String(e && e.message ? e.message : e), 'utf8'));
  }
}

let pending = Buffer.alloc(0);
let rhino = null;

function drain() {
  while (rhino && pending.length >= 8) {
    const op = pending.readUInt32LE(0);
    const length = pending.readUInt32LE(4);
    if (pending.length < 8 + length) return;
    const payload = Buffer.from(pending.subarray(8, 8 + length));
    pending = pending.subarray(8 + length);
    handle(rhino, op, payload);
  }
}

process.stdin.on('data', (chunk) => {
  pending = pending.length ? Buffer.concat([pending, chunk]) : chunk;
  drain();
});
process.stdin.on('end', () => process.exit(0));

rhino3dmFactory().then((rh) => {
  rhino = rh;
  drain();
});
