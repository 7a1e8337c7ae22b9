import { useId, useRef, useState } from 'preact/hooks';
import { CameraError } from '../model/api';
import { kFollowers } from '../model/readers';
import { findingsOf, isGood, Trial, tryFollower } from '../model/trial';
import { Button } from '../parts/button';
import { described, Frame, NumberSetting, SwitchSetting, TextSetting } from '../parts/fields';
import { useFocusKept } from '../parts/focus';
import { SettingsFrame } from '../parts/settings_frame';
import { CameraStatus } from '../parts/status';
import { settings, usePulse, useSettings } from '../stores';
import { texts } from '../texts';
import { ageOf } from './live';

const t = texts.cameras;

export function CamerasTab() {
  return (
    <SettingsFrame>
      {() => (
        <>
          <section class="card">
            <h2>{t.own}</h2>
            <div class="grid">
              <TextSetting tag="CamName" />
              <NumberSetting tag="RepInt" />
            </div>
          </section>
          <section>
            <h2>{t.followers}</h2>
            <p class="help">{t.followersHelp}</p>
            <div class="cards">
              {Array.from({ length: kFollowers }, (_, i) => (
                <Follower key={i} number={i + 1} />
              ))}
            </div>
          </section>
        </>
      )}
    </SettingsFrame>
  );
}

const fields = ['Name', 'IP', 'Login', 'Pwd'];

function Follower({ number }: { number: number }) {
  const { panel } = usePulse();
  const store = useSettings();
  const [opened, setOpened] = useState(false);
  const slot = useRef<HTMLElement>(null);
  // "Set up" goes, for what it opens.
  useFocusKept(slot, () => slot.current!.querySelector('input'));
  const value = (field: string) => store.values.get(`FO${number}_${field}`) ?? '';
  const used = value('Active') === '1' || fields.some((field) => value(field) !== '');
  // What was open once stays open: an address that is typed anew is empty for a moment.
  if (used && !opened) setOpened(true);
  const state = panel?.cameras[number];
  const tag = (field: string) => `FO${number}_${field}`;
  const empty = () =>
    used && settings.change([...fields.map((field): [string, string] => [tag(field), '']), [tag('Active'), '0']]);
  return (
    <section ref={slot} class="card follower" data-testid={`follower-${number}`} aria-label={texts.follower(number)}>
      <div class="card-head">
        <h3>{texts.follower(number)}</h3>
        {state?.active ? (
          <span>
            <CameraStatus camera={state} /> <span class="muted">{ageOf(number)}</span>
          </span>
        ) : (
          <span class="muted">{t.notUsed}</span>
        )}
      </div>
      {opened ? (
        <>
          <SwitchSetting tag={tag('Active')} name={t.activeNamed(number)} />
          <TextSetting tag={tag('Name')} />
          <TextSetting tag={tag('IP')} />
          <div class="grid">
            <TextSetting tag={tag('Login')} />
            <Password tag={tag('Pwd')} />
          </div>
          <TrialOf number={number} />
          <button type="button" class="quiet" aria-disabled={!used} onClick={empty}>
            {t.empty}
          </button>
        </>
      ) : (
        <button type="button" onClick={() => setOpened(true)}>
          {t.show}
        </button>
      )}
    </section>
  );
}

/** Has the camera try whether it can ask a follower, and says what it found. */
function TrialOf({ number }: { number: number }) {
  const { loaded, edits } = useSettings();
  const [trial, setTrial] = useState<Trial | null>(null);
  const [said, setSaid] = useState('');
  const isEdited = fields.some((field) => edits.has(`FO${number}_${field}`));
  if (!loaded?.get(`FO${number}_IP`)) return null;
  const test = async () => {
    setTrial(null);
    setSaid(texts.trial.asked);
    try {
      setTrial(await tryFollower(number));
      setSaid('');
    } catch (error) {
      setSaid(texts.live.failed + texts.trouble[error instanceof CameraError ? error.trouble : 'unreachable']);
    }
  };
  return (
    <div class="column" data-testid={`trial-${number}`}>
      <div class="actions">
        <Button disabled={isEdited || said === texts.trial.asked} onClick={() => void test()}>
          {texts.trial.test(number)}
        </Button>
      </div>
      <div role="status">
        {isEdited ? texts.trial.saveFirst : said}
        {trial && !isEdited && (
          <ul class="findings">
            {findingsOf(trial).map((finding) => (
              <li key={finding} class={isGood(finding) ? 'good' : 'bad'}>
                {texts.trial.findings[finding](trial)}
              </li>
            ))}
          </ul>
        )}
      </div>
    </div>
  );
}

/** Passwords that were taken out, which deleting what was typed then does not bring back. */
const takenOut = new Set<string>();

/** A stored password stays unseen; what is typed replaces it, and nothing typed leaves it as it is. */
function Password({ tag }: { tag: string }) {
  const id = useId();
  const store = useSettings();
  const stored = store.loaded!.get(tag) ?? '';
  const typed = store.edits.get(tag);
  const problem = store.problems.get(tag);
  const take = (value: string) => {
    if (typed === '') takenOut.add(tag);
    else if (typed === undefined) takenOut.delete(tag);
    settings.change([[tag, value || (takenOut.has(tag) ? '' : stored)]], tag);
  };
  const input = useRef<HTMLInputElement>(null);
  const remove = () => {
    settings.change([[tag, '']]);
    // The button goes.
    input.current!.focus();
  };
  return (
    <Frame id={id} tag={tag} problem={problem} changed={typed !== undefined}>
      <input
        ref={input}
        id={id}
        name={tag}
        type="password"
        autocomplete="new-password"
        value={typed ?? ''}
        placeholder={stored && typed !== '' ? t.stored : t.noPassword}
        aria-invalid={!!problem}
        aria-describedby={described(id)}
        onInput={(event) => take(event.currentTarget.value)}
      />
      {stored && typed !== '' && (
        <button type="button" class="quiet" onClick={remove}>
          {t.removePassword}
        </button>
      )}
    </Frame>
  );
}
