import { ComponentChildren } from 'preact';
import { useEffect, useRef, useState } from 'preact/hooks';
import { liveImage, liveStream } from '../camera';
import { Size } from '../model/geometry';
import { usePulse } from '../stores';
import { texts } from '../texts/en';

const kRetry = 4000;
const kStillInterval = 1000;
const kLongestReason = 160;

/**
 * The live picture, with what is drawn on it. Where no stream comes, single pictures are fetched; where these do not
 * come either, words say why and it is tried again.
 */
export function Picture({ resolution, size, children }: { resolution: string; size: Size; children?: ComponentChildren }) {
  const { connection, generation } = usePulse();
  const picture = usePicture(resolution, connection === 'ok', generation);
  const words = connection === 'ok' ? picture.words : texts.connection[connection];
  return (
    <div class={`picture ${children ? 'edited' : ''}`} style={{ aspectRatio: `${size.width} / ${size.height}`, maxWidth: `calc(75vh * ${size.width / size.height})` }}>
      {picture.address && <img key={picture.address} ref={picture.image} src={picture.address} alt={texts.picture.label} draggable={false} onLoad={picture.came} onError={picture.failed} />}
      {words && (
        <div class="no-picture" role="status">
          <strong>{connection === 'ok' && words !== texts.picture.loading ? texts.picture.none : ''}</strong>
          <span>{words}</span>
        </div>
      )}
      {children}
    </div>
  );
}

function usePicture(resolution: string, wanted: boolean, generation: number) {
  const shown = useRef<HTMLImageElement | null>(null);
  const image = useRef((element: HTMLImageElement | null) => {
    // A stream that nobody shows any more would go on in the background.
    if (!element) shown.current?.removeAttribute('src');
    shown.current = element;
  }).current;
  const [address, setAddress] = useState('');
  const [words, setWords] = useState(texts.picture.loading);
  const fallBack = useRef(() => {});

  useEffect(() => {
    if (!wanted) {
      setAddress('');
      setWords(texts.picture.loading);
      return;
    }
    let over = false;
    let timer: ReturnType<typeof setTimeout>;
    let blob = '';
    const still = async () => {
      if (over) return;
      let next = kRetry;
      try {
        const response = await fetch(liveImage(resolution), { cache: 'no-store', signal: AbortSignal.timeout(10_000) });
        if (over) return;
        if (response.ok) {
          const fresh = URL.createObjectURL(await response.blob());
          setAddress(fresh);
          URL.revokeObjectURL(blob);
          blob = fresh;
          next = kStillInterval;
        } else {
          setAddress('');
          setWords(await reasonOf(response));
        }
      } catch {
        setAddress('');
        setWords(texts.picture.lost);
      }
      if (!over) timer = setTimeout(document.hidden ? waitUntilSeen : still, next);
    };
    const waitUntilSeen = () => (document.hidden ? (timer = setTimeout(waitUntilSeen, kStillInterval)) : still());
    fallBack.current = still;
    setWords(texts.picture.loading);
    setAddress(liveStream(resolution));
    return () => {
      over = true;
      clearTimeout(timer);
      URL.revokeObjectURL(blob);
    };
  }, [resolution, wanted, generation]);

  return { address, words, image, came: () => setWords(''), failed: () => fallBack.current() };
}

async function reasonOf(response: Response): Promise<string> {
  if (response.status === 401) return texts.connection.signedOut;
  const said = response.headers.get('content-type')?.startsWith('text/plain') ? await response.text() : '';
  if (said.trim()) return said.trim().split('\n')[0].slice(0, kLongestReason);
  if (response.status >= 500) return texts.picture.lost;
  return texts.picture.notHere;
}
