import { ComponentChildren } from 'preact';
import { useEffect, useRef, useState } from 'preact/hooks';
import { liveImage, liveStream } from '../camera';
import { Size } from '../model/geometry';
import { pictures, StandsStill } from '../model/live_stream';
import { usePulse, useRole, useSettings } from '../stores';
import { texts } from '../texts';

const kRetry = 4000;
const kStillInterval = 1000;
const kMostWait = 10_000;
const kLongestReason = 160;

/**
 * The live picture, with what is drawn on it. Where no stream comes, single pictures are fetched; where these do not
 * come either, or the stream stands still, words say why and it is tried again.
 */
export function Picture({
  resolution,
  size,
  children,
}: {
  resolution: string;
  size: Size;
  children?: ComponentChildren;
}) {
  const { connection, generation } = usePulse();
  const { loaded, trouble } = useSettings();
  const { isViewer } = useRole();
  const image = useRef<HTMLImageElement>(null);
  // The settings name the stream: one that is begun before them would be begun twice. A viewer does not get to see them.
  const wanted = connection === 'ok' && (loaded !== null || trouble !== null || isViewer);
  const words = usePicture(image, resolution, wanted, generation);
  const said =
    connection === 'ok' ? words : connection === 'asking' ? texts.picture.loading : texts.connection[connection];
  return (
    <div
      class={`picture ${children ? 'edited' : ''}`}
      style={{ aspectRatio: `${size.width} / ${size.height}`, maxWidth: `calc(75vh * ${size.width / size.height})` }}
    >
      <img ref={image} hidden={said !== ''} alt={texts.picture.label} draggable={false} />
      {said && (
        <div class="no-picture" role="status">
          <strong>{connection === 'ok' && said !== texts.picture.loading ? texts.picture.none : ''}</strong>
          <span>{said}</span>
        </div>
      )}
      {children}
    </div>
  );
}

/** Shows pictures in an image as long as they are wanted; answers why none is seen, "" while one is. */
function usePicture(
  image: { current: HTMLImageElement | null },
  resolution: string,
  wanted: boolean,
  generation: number,
): string {
  const [words, setWords] = useState<string>(texts.picture.loading);
  useEffect(() => {
    setWords(texts.picture.loading);
    if (!wanted) return;
    const over = new AbortController();
    const say = (said: string) => {
      if (!over.signal.aborted) setWords(said);
    };
    void follow(image.current!, resolution, over.signal, say);
    return () => over.abort();
  }, [resolution, wanted, generation]);
  return words;
}

/** Fetches pictures until it is over: the stream, or single pictures where there is none. */
async function follow(
  image: HTMLImageElement,
  resolution: string,
  over: AbortSignal,
  say: (words: string) => void,
): Promise<void> {
  let streams = true;
  while (!over.aborted) {
    const outcome = await attempt(streams ? liveStream(resolution) : liveImage(resolution), image, over, () => say(''));
    if (streams && outcome.refused) {
      // Perhaps single pictures are to be had; they also say why there are none.
      streams = false;
      continue;
    }
    if (outcome.words) {
      say(outcome.words);
      streams = true;
    }
    await seenAgain(outcome.words ? kRetry : kStillInterval, over);
  }
}

interface Outcome {
  /** Why there is no picture, or none any more; "" when it ended well. */
  words: string;
  refused?: true;
}

/** Shows what an address answers, until that ends. */
async function attempt(
  address: string,
  image: HTMLImageElement,
  over: AbortSignal,
  shown: () => void,
): Promise<Outcome> {
  const giveUp = new AbortController();
  const end = () => giveUp.abort();
  over.addEventListener('abort', end);
  const tooLong = setTimeout(end, kMostWait);
  let words: string = texts.picture.noImage;
  try {
    const response = await fetch(address, { cache: 'no-store', signal: giveUp.signal });
    if (!response.ok) return { words: await reasonOf(response), refused: true };
    clearTimeout(tooLong);
    for await (const picture of pictures(response, kMostWait)) {
      if (over.aborted || document.hidden) return { words: '' };
      await show(image, picture);
      shown();
      words = '';
    }
    return { words };
  } catch (error) {
    if (error instanceof StandsStill) return { words: texts.picture.stands(kMostWait / 1000) };
    return {
      words:
        error instanceof DOMException && error.name === 'EncodingError' ? texts.picture.noImage : texts.picture.lost,
    };
  } finally {
    clearTimeout(tooLong);
    end();
    over.removeEventListener('abort', end);
  }
}

/** Throws when it is none. */
async function show(image: HTMLImageElement, picture: Blob): Promise<void> {
  const address = URL.createObjectURL(picture);
  image.src = address;
  try {
    await image.decode();
  } finally {
    URL.revokeObjectURL(address);
  }
}

/** Waits so many milliseconds, and then until somebody looks, or until it is over. */
async function seenAgain(milliseconds: number, over: AbortSignal): Promise<void> {
  do {
    if (over.aborted) return;
    await new Promise<void>((resolve) => {
      const done = () => {
        clearTimeout(timer);
        over.removeEventListener('abort', done);
        resolve();
      };
      const timer = setTimeout(done, milliseconds);
      over.addEventListener('abort', done);
    });
  } while (document.hidden);
}

async function reasonOf(response: Response): Promise<string> {
  if (response.status === 401) return texts.connection.signedOut;
  const said = response.headers.get('content-type')?.startsWith('text/plain') ? await response.text() : '';
  if (said.trim()) return said.trim().split('\n')[0].slice(0, kLongestReason);
  if (response.status >= 500) return texts.picture.lost;
  return texts.picture.notHere;
}
