import { afterEach, beforeEach, describe, expect, test, vi } from 'vitest';
import { PartReader, pictures, StandsStill } from '../../src/model/live_stream';

const bytes = (text: string) => new TextEncoder().encode(text);
const text = (part: Uint8Array) => new TextDecoder().decode(part);
const part = (body: string, length = true) =>
  `--edge\r\nContent-Type: image/jpeg\r\n${length ? `Content-Length: ${bytes(body).length}\r\n` : ''}\r\n${body}\r\n`;

function read(stream: string, piece: number, type = 'multipart/x-mixed-replace; boundary=edge'): string[] {
  const reader = new PartReader(type);
  const all = bytes(stream);
  const found: string[] = [];
  for (let at = 0; at < all.length; at += piece) found.push(...reader.push(all.slice(at, at + piece)).map(text));
  return found;
}

describe('a multipart stream', () => {
  test.each([1, 5, 4096])('in pieces of %d bytes', (piece) => {
    const stream = `${part('one')}${part('--edge two\r\n\r\n--ed')}${part('')}${part('four', false)}--edge--`;
    expect(read(stream, piece)).toEqual(['one', '--edge two\r\n\r\n--ed', '', 'four']);
  });
  test.each([
    'multipart/x-mixed-replace;boundary="edge"',
    'multipart/x-mixed-replace; boundary=--edge',
    'Multipart/X; Boundary=edge; x=y',
  ])('of %j', (type) => {
    expect(read(part('one'), 100, type)).toEqual(['one']);
  });
  test('without a boundary is none', () => {
    expect(() => new PartReader('multipart/x-mixed-replace')).toThrow('boundary');
  });
  test('what is not whole yet is no part', () => {
    expect(read(part('one').slice(0, -3), 100)).toEqual([]);
    expect(read(part('one', false), 100)).toEqual([]);
  });
});

describe('pictures', () => {
  const kPatience = 10_000;
  beforeEach(() => void vi.useFakeTimers());
  afterEach(() => void vi.useRealTimers());
  const answer = (pieces: string[], end: boolean, type = 'multipart/x-mixed-replace; boundary=edge') =>
    new Response(
      new ReadableStream({
        start(controller) {
          for (const piece of pieces) controller.enqueue(bytes(piece));
          if (end) controller.close();
        },
      }),
      { headers: { 'Content-Type': type } },
    );

  /** What is seen until the patience is over, and then. */
  async function all(response: Response): Promise<string[]> {
    const seen: string[] = [];
    const end = (async () => {
      try {
        for await (const picture of pictures(response, kPatience)) seen.push(await picture.text());
      } catch (error) {
        seen.push(error instanceof StandsStill ? 'stands still' : String(error));
      }
    })();
    await vi.advanceTimersByTimeAsync(kPatience - 1);
    expect(seen).not.toContain('stands still');
    await vi.advanceTimersByTimeAsync(kPatience);
    await end;
    return seen;
  }

  test('come one by one', async () => {
    expect(await all(answer([part('one'), part('two')], true))).toEqual(['one', 'two']);
  });
  test('of several at once are the newest', async () => {
    expect(await all(answer([part('one') + part('two')], true))).toEqual(['two']);
  });
  test('a stream that goes silent stands still', async () => {
    expect(await all(answer([part('one')], false))).toEqual(['one', 'stands still']);
    expect(await all(answer([], false, 'image/jpeg'))).toEqual(['stands still']);
  });
  test('so does one that never finishes a picture', async () => {
    expect(await all(answer([part('one'), part('two').slice(0, 56)], false))).toEqual(['one', 'stands still']);
  });
  test('an answer that is no stream is one picture', async () => {
    expect(await all(answer(['jpeg'], true, 'image/jpeg'))).toEqual(['jpeg']);
  });
});
