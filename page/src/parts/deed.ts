import { useState } from 'preact/hooks';
import { ask, CameraError } from '../model/api';
import { texts } from '../texts';

/** Asks for something to be done and says in words what came of it. */
export function useDeed(): [string, (action: string, done: string) => Promise<void>] {
  const [said, setSaid] = useState('');
  const act = async (action: string, done: string) => {
    setSaid('');
    try {
      await ask(action);
      setSaid(done);
    } catch (error) {
      setSaid(texts.live.failed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
    }
  };
  return [said, act];
}
