import { useState } from 'preact/hooks';
import { kFollowers } from '../model/readers';
import { ranges } from '../model/rules';
import { NumberSetting, SwitchSetting, TextSetting } from '../parts/fields';
import { SettingsFrame } from '../parts/settings_frame';
import { StatusBadge } from '../parts/status';
import { settings, usePulse, useSettings } from '../stores';
import { texts } from '../texts/en';
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
              <TextSetting tag="CamName" label={t.name} help={t.nameHelp} />
              <NumberSetting tag="RepInt" label={t.period} help={t.periodHelp} unit={t.minutes} range={ranges.RepInt} />
            </div>
          </section>
          <section>
            <h2>{t.followers}</h2>
            <p class="help">{t.followersHelp}</p>
            <div class="cards">
              {Array.from({ length: kFollowers }, (_, i) => <Follower key={i} number={i + 1} />)}
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
  const value = (field: string) => store.values.get(`FO${number}_${field}`) ?? '';
  const used = value('Active') === '1' || fields.some((field) => value(field) !== '');
  const state = panel?.cameras[number];
  const tag = (field: string) => `FO${number}_${field}`;
  const empty = () => settings.change([...fields.map((field): [string, string] => [tag(field), '']), [tag('Active'), '0']]);
  return (
    <section class="card follower" data-testid={`follower-${number}`} aria-label={texts.follower(number)}>
      <div class="card-head">
        <h3>{texts.follower(number)}</h3>
        {state?.active ? (
          <span>
            <StatusBadge status={state.status} /> <span class="muted">{ageOf(number)}</span>
          </span>
        ) : (
          <span class="muted">{t.notUsed}</span>
        )}
      </div>
      {used || opened ? (
        <>
          <SwitchSetting tag={tag('Active')} label={t.active} name={t.activeNamed(number)} />
          <TextSetting tag={tag('Name')} label={t.name} />
          <TextSetting tag={tag('IP')} label={t.address} help={t.addressHelp} />
          <div class="grid">
            <TextSetting tag={tag('Login')} label={t.login} />
            <Password tag={tag('Pwd')} />
          </div>
          <button type="button" class="quiet" onClick={empty}>{t.empty}</button>
        </>
      ) : (
        <button type="button" onClick={() => setOpened(true)}>{t.show}</button>
      )}
    </section>
  );
}

/** A stored password stays unseen; what is typed replaces it, and nothing typed leaves it as it is. */
function Password({ tag }: { tag: string }) {
  const store = useSettings();
  const stored = store.loaded!.get(tag) ?? '';
  const typed = store.edits.get(tag);
  const problem = store.problems.get(tag);
  const emptied = typed === '';
  return (
    <div class={`field ${typed !== undefined ? 'changed' : ''}`}>
      <label for={tag}>{t.password}</label>
      <input id={tag} name={tag} type="password" autocomplete="new-password" value={typed ?? ''}
        placeholder={stored && !emptied ? t.stored : t.noPassword} aria-invalid={!!problem} aria-describedby={`${tag}-problem`}
        onInput={(event) => settings.change([[tag, event.currentTarget.value || stored]], tag)} />
      <p class="problem" id={`${tag}-problem`} aria-live="polite">{problem}</p>
    </div>
  );
}
