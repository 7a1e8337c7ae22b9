/* Controls that each show one setting and change it as it is typed. */

import { ComponentChildren } from 'preact';
import { useId } from 'preact/hooks';
import { useSettings } from '../stores';

interface Named {
  tag: string;
  label: string;
  help?: string;
}

/** The setting's value, its problem, and how to change it. */
function useSetting(tag: string) {
  const settings = useSettings();
  return {
    value: settings.values.get(tag) ?? '',
    problem: settings.problems.get(tag),
    loaded: settings.loaded?.get(tag) ?? '',
    changed: settings.edits.has(tag),
    set: (value: string) => settings.change([[tag, value]], tag),
  };
}

function Frame({ id, label, help, problem, changed, children }: {
  id: string; label: string; help?: string; problem?: string; changed: boolean; children: ComponentChildren;
}) {
  return (
    <div class={`field ${changed ? 'changed' : ''}`}>
      <label for={id}>{label}</label>
      <div class="control">{children}</div>
      {help && <p class="help" id={`${id}-help`}>{help}</p>}
      <p class="problem" id={`${id}-problem`} aria-live="polite">{problem}</p>
    </div>
  );
}

const described = (id: string, help?: string) => `${help ? `${id}-help ` : ''}${id}-problem`;

export function TextSetting({ tag, label, help, type = 'text', autocomplete = 'off' }: Named & { type?: string; autocomplete?: string }) {
  const id = useId();
  const { value, problem, changed, set } = useSetting(tag);
  return (
    <Frame {...{ id, label, help, problem, changed }}>
      <input id={id} name={tag} type={type} value={value} autocomplete={autocomplete} spellcheck={false}
        aria-invalid={!!problem} aria-describedby={described(id, help)}
        onInput={(event) => set(event.currentTarget.value)} />
    </Frame>
  );
}

/** 0.350000 is how the camera writes 0.35. */
const plain = (value: string) => (/^\d+\.\d+$/.test(value) ? String(Number(value)) : value);

export function NumberSetting({ tag, label, help, unit, range, step, slider }: Named & {
  unit?: string; range: readonly [number, number]; step?: number; slider?: boolean;
}) {
  const id = useId();
  const { value, loaded, problem, changed, set } = useSetting(tag);
  const take = (event: { currentTarget: HTMLInputElement }) => {
    const typed = event.currentTarget.value.trim();
    set(typed === plain(loaded) ? loaded : typed);
  };
  const shown = changed ? value : plain(value);
  return (
    <Frame {...{ id, label, help, problem, changed }}>
      {slider && (
        <input type="range" aria-label={label} min={range[0]} max={range[1]} step={step} value={shown} onInput={take} />
      )}
      <input id={id} name={tag} type="text" inputMode="decimal" class="number" value={shown} autocomplete="off"
        aria-invalid={!!problem} aria-describedby={described(id, help)} onInput={take} />
      {unit && <span class="unit">{unit}</span>}
    </Frame>
  );
}

export function SwitchSetting({ tag, label, help, name }: Named & { /** for screen readers, where the label is short */ name?: string }) {
  const id = useId();
  const { value, changed, set } = useSetting(tag);
  return (
    <div class={`field switch ${changed ? 'changed' : ''}`}>
      <label>
        <input type="checkbox" name={tag} checked={value === '1'} aria-label={name} aria-describedby={help && `${id}-help`}
          onChange={(event) => set(event.currentTarget.checked ? '1' : '0')} />
        <span>{label}</span>
      </label>
      {help && <p class="help" id={`${id}-help`}>{help}</p>}
    </div>
  );
}

export interface Choice {
  value: string;
  label: string;
  help?: string;
}

export function ChoiceSetting({ tag, label, choices }: Named & { choices: Choice[] }) {
  const id = useId();
  const { value, changed, set } = useSetting(tag);
  return (
    <fieldset class={`field ${changed ? 'changed' : ''}`}>
      <legend>{label}</legend>
      {choices.map((choice) => (
        <div class="choice" key={choice.value}>
          <label>
            <input type="radio" name={tag} value={choice.value} checked={value === choice.value}
              aria-describedby={choice.help && `${id}-${choice.value}`} onChange={() => set(choice.value)} />
            <span>{choice.label}</span>
          </label>
          {choice.help && <p class="help" id={`${id}-${choice.value}`}>{choice.help}</p>}
        </div>
      ))}
    </fieldset>
  );
}

export function SelectSetting({ tag, label, help, choices }: Named & { choices: Choice[] }) {
  const id = useId();
  const { value, changed, set } = useSetting(tag);
  const known = choices.some((choice) => choice.value === value);
  return (
    <Frame {...{ id, label, help, changed }}>
      <select id={id} name={tag} value={value} aria-describedby={described(id, help)} onChange={(event) => set(event.currentTarget.value)}>
        {!known && <option value={value}>{value}</option>}
        {choices.map((choice) => (
          <option key={choice.value} value={choice.value}>{choice.label}</option>
        ))}
      </select>
    </Frame>
  );
}
