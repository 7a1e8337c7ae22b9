import { JSX } from 'preact';
import { useEffect, useState } from 'preact/hooks';
import { texts } from '../texts';

type Part = () => JSX.Element;

/** A part of the page that is fetched when it is first looked at. Where that fails the page is loaded anew by hand: the camera may have another version. */
export function onDemand(fetchPart: () => Promise<Part>): Part {
  let fetched: Part | null = null;
  return () => {
    const [, redraw] = useState(0);
    const [hasFailed, setFailed] = useState(false);
    const load = () => {
      setFailed(false);
      fetchPart().then(
        (part) => {
          fetched = part;
          redraw((count) => count + 1);
        },
        () => setFailed(true),
      );
    };
    useEffect(() => {
      if (!fetched) load();
    }, []);
    if (fetched) {
      const Fetched = fetched;
      return <Fetched />;
    }
    if (!hasFailed) return <p role="status">{texts.part.loading}</p>;
    return (
      <div class="card" role="alert">
        <p>{texts.part.failed}</p>
        <button type="button" onClick={() => location.reload()}>
          {texts.part.again}
        </button>
      </div>
    );
  };
}
