/* The live picture, read as it arrives: one JPEG after the other, so that a stream that stands still is noticed. */

const kMostBytes = 32 << 20;
const kCarriageReturn = 13;
const kNewline = 10;

/** Where a sequence of bytes begins at or after a place; -1 when it does not. */
function find(bytes: Uint8Array, wanted: Uint8Array, from: number): number {
  for (let at = bytes.indexOf(wanted[0], from); at >= 0; at = bytes.indexOf(wanted[0], at + 1)) {
    if (wanted.every((byte, i) => bytes[at + i] === byte)) return at;
  }
  return -1;
}

const headerEnd = new Uint8Array([kCarriageReturn, kNewline, kCarriageReturn, kNewline]);

/** Takes a multipart stream apart. A part ends by its Content-Length, or else where the next boundary begins. */
export class PartReader {
  private rest = new Uint8Array(0);
  private readonly boundary: Uint8Array;

  /** contentType: of the whole stream; throws when it names no boundary. */
  constructor(contentType: string) {
    const found = /boundary="?([^";]+)"?/i.exec(contentType);
    if (!found) throw new Error(`expected a multipart stream with a boundary, got "${contentType}"`);
    this.boundary = new TextEncoder().encode(`--${found[1].replace(/^--/, '')}`);
  }

  /** The parts that are whole now. */
  push(chunk: Uint8Array): Uint8Array<ArrayBuffer>[] {
    const bytes = new Uint8Array(this.rest.length + chunk.length);
    bytes.set(this.rest);
    bytes.set(chunk, this.rest.length);
    const parts: Uint8Array<ArrayBuffer>[] = [];
    let at = 0;
    for (let part = this.part(bytes, at); part; part = this.part(bytes, at)) {
      parts.push(bytes.slice(part.start, part.end));
      at = part.end;
    }
    this.rest = bytes.slice(at);
    if (this.rest.length > kMostBytes) throw new Error(`expected a picture of at most ${kMostBytes} bytes`);
    return parts;
  }

  private part(bytes: Uint8Array, from: number): { start: number; end: number } | null {
    const boundary = find(bytes, this.boundary, from);
    const headersEnd = boundary < 0 ? -1 : find(bytes, headerEnd, boundary);
    if (headersEnd < 0) return null;
    const start = headersEnd + headerEnd.length;
    const headers = new TextDecoder().decode(bytes.subarray(boundary, headersEnd));
    const length = /^content-length:\s*(\d{1,9})\s*$/im.exec(headers);
    if (length) {
      const end = start + Number(length[1]);
      return end <= bytes.length ? { start, end } : null;
    }
    const next = find(bytes, this.boundary, start);
    return next < 0 ? null : { start, end: Math.max(start, next - 2) };
  }
}

/** Nothing has come for too long. */
export class StandsStill extends Error {}

/** What a promise holds; throws StandsStill when that takes more than so many milliseconds. */
async function within<T>(patience: number, promise: Promise<T>): Promise<T> {
  let timer: ReturnType<typeof setTimeout> | undefined;
  const stillness = new Promise<never>((_, reject) => {
    timer = setTimeout(() => reject(new StandsStill()), patience);
  });
  return Promise.race([promise, stillness]).finally(() => clearTimeout(timer));
}

/**
 * The pictures of an answer: of a multipart stream each, of any other its one. Throws StandsStill when the next one is not
 * whole within so many milliseconds.
 */
export async function* pictures(response: Response, patience: number): AsyncGenerator<Blob> {
  const contentType = response.headers.get('content-type') ?? '';
  if (!contentType.startsWith('multipart/')) {
    yield await within(patience, response.blob());
    return;
  }
  const parts = new PartReader(contentType);
  const body = response.body!.getReader();
  const next = async (): Promise<Uint8Array<ArrayBuffer> | null> => {
    for (;;) {
      const piece = await body.read();
      if (piece.done) return null;
      // Of several that came at once only the newest is of interest.
      const newest = parts.push(piece.value).at(-1);
      if (newest) return newest;
    }
  };
  try {
    for (let part = await within(patience, next()); part; part = await within(patience, next()))
      yield new Blob([part], { type: 'image/jpeg' });
  } finally {
    body.cancel().catch(() => {});
  }
}
